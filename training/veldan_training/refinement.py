"""Training data of the refinement and output networks: crops of the boxes that the stage before really produces."""
import csv
import zipfile

import cv2
import numpy as np
import torch

from . import augment, photos

NEGATIVE, PART, POSITIVE = 0, -1, 1
UNKNOWN = -1.0  # score target of a crop whose score nobody asks for


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

    def __init__(self, pieces, truth, face_list, rows, size, seed, correction, tracked=0.0):
        """pieces, truth, rows: see pieces.Collection. tracked: share of crops cut as the library cuts them to refine a known face."""
        self.photos, self.faces, self.size, self.seed = pieces, face_list, size, seed
        self.correction, self.tracked = correction, tracked
        self.negative = rows[rows[:, 5] == NEGATIVE]
        self.found = rows[rows[:, 5] != NEGATIVE]
        self.truth = np.array(truth)

        def by_face(weight, other, pairs):
            """By pack; heads turned far to the side count three times."""
            side = [3.0 if pieces[i].pack in photos.EVERYDAY and photos.profile(pieces[i].points[k])[0] else 1.0 for i, k in pairs]
            return _cumulative([weight.get(pieces[i].pack, other) * more for (i, _), more in zip(pairs, side)])

        # More of people's points, of crowds, and of close-ups, whose extents differ most.
        self.truth_weight = by_face({"groups": 2.5, "helen": 10.0, "portraits": 1.0, "net80": 1.2, "babies": 3.0}, 1.5, self.truth)
        self.found_weight = by_face({"groups": 2.0, "mask_close": 1.5, "babies": 2.0}, 1.0, self.found[:, [0, 6]].astype(int))
        self.human_weight = _cumulative([float(pieces[i].human[k]) for i, k in self.truth]) if tracked else None
        # The weight is the score that the network had given: hard ones are drawn more often.
        w = 0.15 + self.negative[:, 7]
        self.negative_weight = _cumulative(w)

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            yield self.sample(rng)

    def sample(self, rng):
        if rng.random() < self.tracked:
            return self.track(rng)
        u = rng.random()
        if u < 0.46:
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
        elif u < 0.72:
            row = self.found[np.searchsorted(self.found_weight, rng.random())]
            photo, box, scale = self.photos[int(row[0])], row[1:4].astype(np.float64), row[4]
            label, face = int(row[5]), int(row[6])
        else:
            if u < 0.92 or not self.faces:
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

    def track(self, rng):
        """A face that is known from the detector or from the frame before, cut as OnetLandmark cuts it: further to the left or
        upwards where the box is not square, and never beyond the frame. It is asked for box and points, not for a score."""
        weight = self.human_weight if rng.random() < 0.6 else self.truth_weight
        i, face = self.truth[np.searchsorted(weight, rng.random())]
        photo = self.photos[i]
        x, y, w, h = photo.boxes[face].astype(np.float64)
        scale = np.exp(rng.uniform(np.log(50), np.log(300))) / h
        spread = 0.025 if rng.random() < 0.7 else 0.06
        x, y = x + rng.normal(0, spread) * w, y + rng.normal(0, spread) * h
        w, h = w * np.exp(rng.normal(0, spread)), h * np.exp(rng.normal(0, spread))
        side, flip = max(w, h), rng.random() < 0.5
        left, top, right, bottom = photo.frame or (0, 0, *photo.image.shape[1::-1])
        ends = (x + w - side, x + (w + side) / 2) if flip else (x + (w - side) / 2, x + side)
        near = max(ends[0], left), max(y + (h - side) / 2, top)
        far = min(ends[1], right), min(y + side, bottom)
        box = np.array([*near, far[0] - near[0], far[1] - near[1]])
        if min(box[2:]) < 0.4 * side:
            return self.track(rng)
        box[0] += flip / scale  # the column that the library leaves out
        return self.crop(rng, photo, box, scale, POSITIVE, face, -1.0 if flip else 1.0)

    def crop(self, rng, photo, box, scale, label, face, flip=None):
        """box: x, y, side, or x, y and both sides where the crop is one of a known face."""
        size, side, known = self.size, box[2:] if len(box) == 4 else np.repeat(box[2:], 2), len(box) == 4
        # The library cuts (side - 1) frame pixels of a box of `side` and measures its answers in sides.
        step = np.maximum(side - 1 / scale, 2.0) / size
        centre = box[:2] + step * size / 2
        angle = np.deg2rad(rng.normal(0, 12)) if rng.random() < 0.4 else 0.0
        flip = flip or (-1.0 if rng.random() < 0.5 else 1.0)
        rot = np.array([[np.cos(angle), -np.sin(angle)], [np.sin(angle), np.cos(angle)]])
        # Pictures are often squeezed; both sides change, so that the area stays.
        stretch = np.exp(rng.normal(0, 0.15)) if rng.random() < 0.3 else 1.0
        linear = rot @ np.diag([flip * stretch, 1 / stretch]) @ np.diag(step)  # crop pixel -> photo pixel
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
            unit = step / side                                # crop pixels -> sides, across and down
            extent = np.array([w / stretch, h * stretch]) / step
            seen = np.array([*(into(np.array([x + w / 2, y + h / 2])) - extent / 2), *extent])  # the face's box in the crop
            x, y, w, h = seen * np.tile(unit, 2)
            score = UNKNOWN if known else score_target(photos.overlap((0, 0, 1, 1), _squares(np.array([[x, y, w, h]])))[0])
            far = 1 - 1 / (scale * side)                      # the far edge the library starts from
            bbox[:] = x, y, x + w - far[0], y + h - far[1]
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
        frame = np.array(photo.frame or (0, 0, *photo.image.shape[1::-1]), np.float64)
        if aligned:
            frame = np.array([-np.inf, -np.inf, np.inf, np.inf])
        if rng.random() < 0.08 and not known:
            frame = _cut(rng, frame, photo.boxes[face] if face >= 0 else (*box[:2], *side))
        elif known:
            frame = np.array([-np.inf, -np.inf, np.inf, np.inf])
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
