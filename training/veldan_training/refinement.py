"""Training data of the refinement and output networks: crops of the boxes that the stage before really produces."""
import csv
import zipfile

import cv2
import numpy as np
import torch

from . import augment, cascade, photos

NEGATIVE, PART, POSITIVE = 0, -1, 1
FRAME_SIDES = [640, 640, 480, 800]  # the photo's longer side while boxes are mined


def face_packs(data, packs=("utk", "pins", "celeba"), limit=None):
    """The aligned faces as photos of one face each; the box follows from the points."""
    out = []
    for pack in packs:
        with zipfile.ZipFile(f"{data}/faces/{pack}.zip") as z, open(f"{data}/faces/{pack}.csv", newline="") as f:
            members = {n.split("/")[-1]: n for n in z.namelist()}
            rows = [r for r in csv.reader(f) if r and r[0] != "file"]
            for r in rows[:limit]:
                if r[0] not in members or photos.is_development(r[0]):
                    continue
                points = np.array([float(v) for v in r[2:12]])
                image = cv2.imdecode(np.frombuffer(z.read(members[r[0]]), np.uint8), cv2.IMREAD_COLOR)
                out.append(photos.Photo("faces", r[0], image, photos.box_of_points(points)[None].astype(np.float32),
                                        np.ones(1, bool), points[None].astype(np.float32), np.zeros(1, bool)))
    return out


def _squares(boxes):
    side = np.maximum(boxes[:, 2], boxes[:, 3])
    return np.stack([boxes[:, 0] + boxes[:, 2] / 2 - side / 2, boxes[:, 1] + boxes[:, 3] / 2 - side / 2, side, side], 1)


def score_target(iou):
    """Rises with the overlap: of nested boxes the suppression behind the network keeps the one that scores best, and on a
    close-up a box of half the face looks as much like a face as the right one does."""
    return min(max((iou - 0.3) / 0.4, 0.0), 1.0)


def classify(box, photo):
    """(label, face index) of a squared box x, y, side in photo coordinates; None when it should not be used."""
    if len(photo.boxes) == 0:
        return NEGATIVE, -1
    iou = photos.overlap((box[0], box[1], box[2], box[2]), _squares(photo.boxes))
    best = int(iou.argmax())
    if iou[best] >= 0.35:
        if not photo.certain[best]:
            return None
        return (POSITIVE if iou[best] >= 0.5 else PART), best
    for k in np.flatnonzero(~photo.certain):
        x, y, w, h = photo.boxes[k]
        iw = min(box[0] + box[2], x + w) - max(box[0], x)
        ih = min(box[1] + box[2], y + h) - max(box[1], y)
        if iou[k] > 0.15 or (iw > 0 and ih > 0 and iw * ih > 0.5 * box[2] ** 2):
            return None
    return (NEGATIVE, -1) if iou[best] < 0.28 else None


def mine(detector, photo_list, stage, rng, threshold, limit=60):
    """Rows of photo index, x, y, side, frame scale, label, face, score; boxes as they enter `stage` (2 or 3)."""
    rows = []
    for i, photo in enumerate(photo_list):
        frame, scale = cascade.fit(photo.image, int(rng.choice(FRAME_SIDES)))
        boxes, scores = (detector.proposals if stage == 2 else detector.refined)(frame, 45, threshold)
        order = np.arange(len(boxes))
        if len(order) > limit:  # the best, and a sample of the others
            order = np.concatenate([order[:limit // 2], rng.choice(order[limit // 2:], limit // 2, replace=False)])
        for b, s in zip(boxes[order], scores[order]):
            box = (b[0] / scale, b[1] / scale, (b[2] - b[0] + 1) / scale)
            kind = classify(box, photo)
            if kind:
                rows.append((i, *box, scale, *kind, s))
        if i % 1000 == 999:
            print(f"mined {i + 1}/{len(photo_list)} photos, {len(rows)} boxes", flush=True)
    return np.array(rows, np.float32)


def _cumulative(weight):
    """For np.searchsorted with a number in [0, 1): in double precision and divided last, so that the end is exactly 1."""
    total = np.cumsum(weight, dtype=np.float64)
    return total / total[-1]


def _cut(rng, frame, box):
    """The frame with one edge moved into the box, as when somebody stands half outside of the picture."""
    frame, edge, depth = frame.copy(), int(rng.integers(4)), rng.uniform(0.0, 0.35)
    x, y, w, h = box
    place = [x + depth * w, y + depth * h, x + (1 - depth) * w, y + (1 - depth) * h][edge]
    frame[edge] = max(frame[edge], place) if edge < 2 else min(frame[edge], place)
    return frame


class Crops(torch.utils.data.IterableDataset):
    """Endless augmented crops: image, label, score target, box target, points target, weight of the points."""

    def __init__(self, photo_list, face_list, rows, size, seed, correction):
        self.photos, self.faces, self.size, self.seed = photo_list, face_list, size, seed
        self.correction = correction
        self.negative = rows[rows[:, 5] == NEGATIVE]
        self.found = rows[rows[:, 5] != NEGATIVE]
        pairs = [(i, k) for i, p in enumerate(photo_list) for k in np.flatnonzero(p.certain) if max(p.boxes[k, 2:]) >= 12]
        self.truth = np.array(pairs)

        def by_pack(weight, other, rows):
            return _cumulative([weight.get(photo_list[int(row[0])].pack, other) for row in rows])

        # More of people's points, of crowds, and of close-ups, whose extents differ most.
        self.truth_weight = by_pack({"groups": 2.5, "helen": 10.0, "portraits": 1.0, "mask_close": 1.5, "net80": 1.2}, 1.5, pairs)
        self.found_weight = by_pack({"groups": 2.0, "mask_close": 1.5}, 1.0, self.found)
        # Boxes that more sides of the frame agree on come from the same few photos; hard ones are drawn more often.
        w = 0.2 + self.negative[:, 7]
        self.negative_weight = _cumulative(w)

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            yield self.sample(rng)

    def sample(self, rng):
        u = rng.random()
        if u < 0.42:
            row = self.negative[np.searchsorted(self.negative_weight, rng.random())]
            photo = self.photos[int(row[0])]
            box = row[1:4].astype(np.float64)
            if rng.random() < 0.5:
                box[:2] += rng.uniform(-0.1, 0.1, 2) * box[2]
                box[2] *= rng.uniform(0.9, 1.1)
            scale, face, label = row[4], -1, NEGATIVE
            kind = classify(box, photo)
            if kind != (NEGATIVE, -1):
                box = row[1:4].astype(np.float64)
        elif u < 0.46:  # anywhere in any photo
            photo = self.photos[int(rng.integers(len(self.photos)))]
            h, w = photo.image.shape[:2]
            side = np.exp(rng.uniform(np.log(16), np.log(max(20, min(h, w)))))
            box = np.array([rng.uniform(-0.2 * side, w - 0.8 * side), rng.uniform(-0.2 * side, h - 0.8 * side), side])
            kind = classify(box, photo)
            if kind is None:
                return self.sample(rng)
            (label, face), scale = kind, rng.uniform(45, 200) / side
        elif u < 0.68 and len(self.found):
            row = self.found[np.searchsorted(self.found_weight, rng.random())]
            photo, box, scale = self.photos[int(row[0])], row[1:4].astype(np.float64), row[4]
            label, face = int(row[5]), int(row[6])
        else:
            if u < 0.86 or not self.faces:
                i, face = self.truth[np.searchsorted(self.truth_weight, rng.random())]
                photo = self.photos[i]
            else:
                photo, face = self.faces[int(rng.integers(len(self.faces)))], 0
            x, y, w, h = photo.boxes[face]
            side = max(w, h)
            new = side * np.exp(rng.normal(0, 0.12))
            centre = np.array([x + w / 2, y + h / 2]) + rng.normal(0, 0.07, 2) * side
            box = np.array([*(centre - new / 2), new])
            kind = classify(box, photo)
            if kind is None or kind[1] != face:
                return self.sample(rng)
            label, scale = kind[0], np.exp(rng.uniform(np.log(45), np.log(300))) / side
        return self.crop(rng, photo, box, scale, label, face)

    def crop(self, rng, photo, box, scale, label, face):
        size, side = self.size, box[2]
        # The library cuts (side - 1) frame pixels of a box of `side` and measures its answers in sides.
        step = max(side - 1 / scale, 2.0) / size
        centre = box[:2] + step * size / 2
        angle = np.deg2rad(rng.normal(0, 12)) if rng.random() < 0.4 else 0.0
        flip = -1.0 if rng.random() < 0.5 else 1.0
        rot = np.array([[np.cos(angle), -np.sin(angle)], [np.sin(angle), np.cos(angle)]])
        # Pictures are often squeezed; both sides change, so that the area stays.
        stretch = np.exp(rng.normal(0, 0.15)) if rng.random() < 0.3 else 1.0
        linear = step * rot @ np.diag([flip * stretch, 1 / stretch])  # crop pixel -> photo pixel
        offset = centre - linear @ np.full(2, size / 2) + linear @ np.full(2, 0.5) - 0.5
        aligned = photo.pack == "faces"
        border = cv2.BORDER_REFLECT if aligned else cv2.BORDER_REPLICATE
        image = cv2.warpAffine(photo.image, np.hstack([linear, offset[:, None]]), (size, size),
                               flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP, borderMode=border)
        inverse = np.linalg.inv(linear)

        def into(points):  # photo -> crop pixels
            return (points - centre) @ inverse.T + size / 2

        bbox, target, weight, mapped, score = np.zeros(4, np.float32), np.zeros(10, np.float32), 0.0, None, 0.0
        if face >= 0:
            x, y, w, h = photo.boxes[face]
            unit = step / side                                # crop pixels -> sides
            extent = np.array([w / stretch, h * stretch]) / step
            seen = np.array([*(into(np.array([x + w / 2, y + h / 2])) - extent / 2), *extent])  # the face's box in the crop
            x, y, w, h = seen * unit
            score = score_target(photos.overlap((0, 0, 1, 1), _squares(np.array([[x, y, w, h]])))[0])
            far = 1 - 1 / (scale * side)                      # the far edge the library starts from
            bbox[:] = x, y, x + w - far, y + h - far
            points = photo.points[face]
            if np.isfinite(points).all():
                weight = 1.0
                if not photo.human[face]:
                    points, weight = self.correction(points, photo.boxes[face]), 0.08
                mapped = into(points.reshape(5, 2))
                if flip < 0:
                    mapped = mapped[photos.MIRROR]
                target[:] = (mapped * unit).ravel()
        image = augment.colour(rng, image)
        if face >= 0:
            if mapped is not None and rng.random() < 0.08:
                image = augment.paint_mask(rng, image, mapped)
            if rng.random() < 0.1:
                image = augment.occlude(rng, image, seen)
        image = augment.resolution(rng, image)
        # What lies outside of the frame is black however the frame was lit.
        h, w = photo.image.shape[:2]
        frame = np.array([-np.inf, -np.inf, np.inf, np.inf] if aligned else [0, 0, w, h], np.float64)
        if rng.random() < 0.08:
            frame = _cut(rng, frame, photo.boxes[face] if face >= 0 else (*box[:2], side, side))
        x, y = np.tensordot(linear, np.mgrid[0:size, 0:size][::-1], 1) + offset[:, None, None] + 0.5
        image[(x < frame[0]) | (y < frame[1]) | (x > frame[2]) | (y > frame[3])] = 0
        return np.ascontiguousarray(image.transpose(2, 0, 1)), label, np.float32(score), bbox, target, np.float32(weight)


class Correction:
    """Takes out what the teacher's points systematically have against people's: one linear map, fitted where both exist."""

    def __init__(self, data):
        source, wanted = [], []
        for pack in ("helen", "net80"):
            # The same files read without the human points give the teacher's.
            by_name = {p.name: p for p in photos.load(data, "train", packs=[pack], subset="fit")}
            teacher = {}
            for name, box, points, score in photos.teacher_faces(f"{data}/photos", pack):
                if name in by_name and score >= photos.FACE_SCORE:
                    teacher.setdefault(name, []).append((box, points))
            for name, photo in by_name.items():
                for k in np.flatnonzero(photo.human):
                    for box, points in teacher.get(name, []):
                        if np.abs(box - photo.boxes[k]).max() < 0.5:
                            a, b = self.normal(points, box), self.normal(photo.points[k], box)
                            if np.abs(a - b).max() < 0.12:
                                source.append(np.append(a, 1))
                                wanted.append(b)
        self.map = np.linalg.lstsq(np.array(source), np.array(wanted), rcond=None)[0]
        self.pairs = len(source)

    @staticmethod
    def normal(points, box):
        return (points - np.tile(box[:2] + box[2:] / 2, 5)) / box[3]

    def __call__(self, points, box):
        return np.append(self.normal(points, box), 1) @ self.map * box[3] + np.tile(box[:2] + box[2:] / 2, 5)
