"""Pieces of photos around boxes: what FaceDetectR and FaceDetectO learn from, mined once so that no photo is decoded in training."""
import numpy as np

import cv2

from . import cascade, photos, refinement

MARGIN = 1.7  # side of a piece in sides of its box: room for shifts, turns and stretching
# pixels of a box in its piece at most; how many negatives (the hardest, and any), found faces and labels a photo gives at most
LIMITS = {2: (40, 8, 3, 8, 6), 3: (76, 8, 2, 8, 6)}
SMALLEST = {True: 24, False: 12}  # label that counts as a face, in photo pixels: everyday photos, portraits
FRAME_SIDES = [640, 640, 480]  # the photo's longer side while boxes are mined


class Collection:
    """pieces: photos.Photo with a small picture. rows: piece, x, y, side, frame scale, label, face, weight (all in piece pixels).
    truth: piece, face, kept for labels that are drawn with random boxes."""

    def __init__(self):
        self.pieces, self.rows, self.truth = [], [], []

    def cut(self, photo, box, most):
        """Cuts a piece around the box (x, y, side) and returns (number, scale, offset)."""
        side = max(MARGIN * box[2], 8)
        x0, y0 = np.floor(box[0] + box[2] / 2 - side / 2), np.floor(box[1] + box[2] / 2 - side / 2)
        h, w = photo.image.shape[:2]
        x0, y0, x1, y1 = max(int(x0), 0), max(int(y0), 0), min(int(x0 + side) + 1, w), min(int(y0 + side) + 1, h)
        if x1 - x0 < 4 or y1 - y0 < 4:
            return None
        image, scale = photo.image[y0:y1, x0:x1], min(1.0, most / box[2])
        if scale < 1:
            size = max(4, round((x1 - x0) * scale)), max(4, round((y1 - y0) * scale))
            image = cv2.resize(image, size, interpolation=cv2.INTER_AREA)
        offset = np.array([x0, y0])
        b = photo.boxes
        near = np.flatnonzero((b[:, 0] < x1) & (b[:, 1] < y1) & (b[:, 0] + b[:, 2] > x0) & (b[:, 1] + b[:, 3] > y0))
        boxes, points = b[near].copy(), photo.points[near].copy()
        boxes[:, :2] -= offset
        points -= np.tile(offset, 5)
        frame = (-x0 * scale, -y0 * scale, (w - x0) * scale, (h - y0) * scale)
        self.pieces.append(photos.Photo(photo.pack, photo.name, np.ascontiguousarray(image), boxes * np.float32(scale), photo.certain[near],
                                        (points * scale).astype(np.float32), photo.human[near], frame))
        return len(self.pieces) - 1, scale, offset, near

    def add_box(self, photo, box, frame_scale, kind, weight, most):
        piece = self.cut(photo, box, most)
        if piece is None:
            return
        number, scale, offset, near = piece
        face = int(np.flatnonzero(near == kind[1])[0]) if kind[1] >= 0 and (near == kind[1]).any() else -1
        if kind[1] >= 0 and face < 0:
            return
        x, y = (np.array(box[:2]) - offset) * scale
        self.rows.append((number, x, y, box[2] * scale, frame_scale / scale, kind[0], face, weight))

    def add_truth(self, photo, k, most):
        x, y, w, h = photo.boxes[k]
        side = max(w, h) * 1.25
        piece = self.cut(photo, (x + w / 2 - side / 2, y + h / 2 - side / 2, side), most * 1.25)
        if piece is not None:
            self.truth.append((piece[0], int(np.flatnonzero(piece[3] == k)[0])))


def mine(detector, photo, rng, collections, threshold=0.3, refine_threshold=0.25, boxes_too=True):
    """Adds a photo to both collections: boxes as P leaves them and R scores them, and as R leaves them and O scores them."""
    labels = np.flatnonzero(photo.certain & (photo.boxes[:, 2:].max(1, initial=0) >= SMALLEST[photo.pack in photos.EVERYDAY]))
    for stage, collection in collections.items():
        for k in rng.permutation(labels)[:LIMITS[stage][4]]:
            collection.add_truth(photo, k, LIMITS[stage][0])
    if not boxes_too:
        return
    frame, scale = cascade.fit(photo.image, int(rng.choice(FRAME_SIDES)))
    boxes, _ = detector.proposals(frame, 45, threshold)
    if len(boxes) == 0:
        return
    boxes = boxes[:120]
    cls, regression = detector.run(detector.r, frame, boxes, 24, ["cls_fc/Softmax", "bbox_fc/MatMul"])
    _keep(photo, rng, collections[2], 2, boxes, cls[:, 1], scale)
    good = cls[:, 1] >= refine_threshold
    if not good.any():
        return
    b, s, r = boxes[good], cls[good, 1], regression[good]
    kept = cascade.nms(b, s, 0.7, "m")
    boxes = cascade.square(cascade.regress(b[kept], r[kept]))
    cls, = detector.run(detector.o, frame, boxes, 48, ["cls_fc/Softmax"])
    _keep(photo, rng, collections[3], 3, boxes, cls[:, 1], scale)


def _keep(photo, rng, collection, stage, boxes, scores, scale):
    most, hardest, some, found, _ = LIMITS[stage]
    rows = []
    for b, s in zip(boxes, scores):
        box = (b[0] / scale, b[1] / scale, (b[2] - b[0] + 1) / scale)
        kind = refinement.classify(box, photo)
        if kind:
            rows.append((box, kind, s))
    negative = sorted((r for r in rows if r[1][0] == refinement.NEGATIVE), key=lambda r: -r[2])
    rest = negative[hardest:]
    chosen = negative[:hardest] + [rest[i] for i in rng.permutation(len(rest))[:some]]
    faces = [r for r in rows if r[1][0] != refinement.NEGATIVE]
    chosen += [faces[i] for i in rng.permutation(len(faces))[:found]]
    for box, kind, s in chosen:
        collection.add_box(photo, box, scale, kind, s, most)
