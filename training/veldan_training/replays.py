"""Real photographs of live people, and of prints and screens held before a camera, each with the source it came from.

A source is one collection: a few people, cameras and rooms. Most of its photos are tight crops out of videos, so that the aligned crop reaches
beyond them. What lies there is drawn, for both classes alike, and must not tell one from the other.
"""
import csv
import os
import zipfile
from dataclasses import dataclass

import cv2
import numpy as np

from . import cascade, exporting, faces

LARGEST = 224    # side of the aligned crop, in pixels of the photo, beyond which nothing is kept
CONTEXT = 1.25   # what is kept, in sides of the aligned crop: the errors of alignment move it about
SET1 = "set1"    # of DATA/spoof
REVIEW = os.path.join(os.path.dirname(__file__), "..", "liveness_review.csv")
NOISE = np.random.default_rng(0).normal(0, 1, (600, 600, 3)).astype(np.float32)


@dataclass
class Replay:
    source: str
    live: bool
    image: np.ndarray     # the aligned crop with what is around it, at the photo's resolution
    inside: np.ndarray    # True where the photo is, False where its surroundings are drawn; None: everywhere
    points: np.ndarray    # 5 x 2
    crop: np.ndarray      # 112 x 112 as the engine cuts it

    @property
    def unit(self):
        return self.image.shape[0] / CONTEXT


def frame_around(crop, grey=False):
    """A camera frame for a tight crop, and the room on each side: scenery without detail, the crop's edges drawn out and blurred."""
    room = max(crop.shape[:2]) // 2
    if grey:
        return cv2.copyMakeBorder(crop, room, room, room, room, cv2.BORDER_CONSTANT, value=(127, 127, 127)), room
    frame = cv2.blur(cv2.copyMakeBorder(crop, room, room, room, room, cv2.BORDER_REPLICATE), (room // 2 * 2 + 1,) * 2)
    frame[room:room + crop.shape[0], room:room + crop.shape[1]] = crop
    return frame, room


def _without_border(photo):
    """The tight crop out of a packed photo, which is set on one colour."""
    inside = np.abs(photo.astype(int) - photo[2, 2].astype(int)).max(2) > 14
    rows, columns = (np.flatnonzero(inside.mean(axis) > 0.02) for axis in (1, 0))
    return np.ascontiguousarray(photo[rows[0]:rows[-1] + 1, columns[0]:columns[-1] + 1])


def _points(detector, crop):
    """Five points of the most certain large face that stands upright in the crop; None when there is none."""
    scale = min(1.0, 320 / max(crop.shape[:2]))
    small = cv2.resize(crop, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA) if scale < 1 else crop
    best, points = 0.0, None
    for grey in (False, True):
        frame, room = frame_around(small, grey)
        for box, score, found in zip(*detector.detect(frame)):
            p = found.reshape(5, 2) - room
            m = faces.similarity(p, faces.TEMPLATE)
            centre = p.mean(0) / small.shape[1::-1]
            if abs(np.degrees(np.arctan2(m[0, 1], m[0, 0]))) > 45 or not ((0.1 < centre) & (centre < 0.9)).all():
                continue
            if (box[2] - box[0]) * score ** 2 > best:
                best, points = (box[2] - box[0]) * score ** 2, p / scale
        if points is not None:
            return points
    return None


def _replay(source, live, crop, points):
    frame, room = frame_around(crop)
    points = points + room
    cut = faces.align(frame, points)
    inside = np.zeros(frame.shape[:2], np.uint8)
    inside[room:room + crop.shape[0], room:room + crop.shape[1]] = 1
    m = faces.similarity(points, faces.TEMPLATE)
    unit = faces.CROP / np.hypot(m[0, 0], m[0, 1])
    while unit > 2 * LARGEST:
        frame, inside = (cv2.resize(a, None, fx=0.5, fy=0.5, interpolation=cv2.INTER_AREA) for a in (frame, inside))
        points, unit = points / 2, unit / 2
    kept = min(LARGEST, unit)
    if unit / kept > 1.25:
        frame = cv2.GaussianBlur(frame, (0, 0), 0.3 * unit / kept)
    side = int(round(CONTEXT * kept))
    target = (faces.TEMPLATE - faces.CROP / 2) * kept / faces.CROP + side / 2
    m = faces.similarity(points, target)
    image = cv2.warpAffine(frame, m, (side, side), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
    inside = cv2.warpAffine(inside, m, (side, side), flags=cv2.INTER_NEAREST) > 0
    return Replay(source, live, image, None if inside.all() else inside, target, cut)


def _review():
    """{(source, file): quarter turns clockwise, or None for what is left out}"""
    with open(REVIEW, newline="") as f:
        return {(r["source"], r["file"]): int(r["turn"]) // 90 if r["turn"] else None for r in csv.DictReader(f)}


def _photos(args):
    """(source, live, tight crop) of every photo that may be trained on."""
    folder = f"{args.data}/spoof"
    if os.path.exists(f"{folder}/photos.csv"):
        with zipfile.ZipFile(f"{folder}/photos.zip") as z, open(f"{folder}/photos.csv", newline="") as f:
            members = {n.split("/")[-1]: n for n in z.namelist()}
            for name, part, kind in csv.reader(f):
                if part == SET1 and name in members:
                    crop = _without_border(cv2.imdecode(np.frombuffer(z.read(members[name]), np.uint8), cv2.IMREAD_COLOR))
                    yield SET1, kind == "live", crop
    if not args.more:
        return
    review = _review()
    for source in sorted(f[:-4] for f in os.listdir(args.more) if f.startswith("attack_") and f.endswith(".csv")):
        with open(f"{args.more}/{source}.csv", newline="") as f:
            for r in csv.DictReader(f):
                turns = review.get((source, r["file"]), 0)
                if turns is not None:
                    crop = cv2.imread(f"{args.more}/{source}/{r['file']}")
                    yield source, r["class"] == "live", np.ascontiguousarray(np.rot90(crop, -turns))


def load(args):
    """Every photo of the sources in which the detector finds an upright face."""
    detector = cascade.Cascade(*(exporting.read(args.networks, n) for n in ("FaceDetectP", "FaceDetectR", "FaceDetectO")))
    out = []
    for source, live, crop in _photos(args):
        points = _points(detector, crop)
        if points is not None:
            out.append(_replay(source, live, crop, points))
    return out


def _tone(rng, strength):
    """A camera's exposure, white balance, contrast and curve as a table of 256 values for each channel."""
    v = np.arange(256, dtype=np.float32)[:, None].repeat(3, 1) / 255
    if rng.random() < 0.7 * strength:
        v = v ** np.float32(np.exp(rng.uniform(-0.5, 0.5) * strength))
    if rng.random() < 0.8 * strength:
        v = v * np.float32(np.exp(rng.uniform(-0.45, 0.4) * strength)) + np.float32(rng.uniform(-0.1, 0.1) * strength)
    if rng.random() < 0.7 * strength:
        v = v * np.exp(rng.normal(0, 0.1 * strength, 3)).astype(np.float32)
    if rng.random() < 0.35 * strength:
        v = (v - 0.5) * np.float32(rng.uniform(0.6, 1.5)) + 0.5
    if rng.random() < 0.2 * strength:
        v = np.clip(v, 0, 1)
        v = v + np.float32(rng.uniform(-0.6, 0.6)) * v * (1 - v) * (v - 0.5) * 2
    return np.clip(v * 255, 0, 255).astype(np.uint8).reshape(1, 256, 3)


def _surroundings(rng, image, inside, others):
    """What is around a tight crop changes: one colour, black, or somebody else out of focus."""
    image, outside, kind = image.copy(), ~inside, rng.random()
    if kind < 0.35:
        image[outside] = rng.integers(0, 256, 3)
    elif kind < 0.5:
        image[outside] = 0
    else:
        other = others[int(rng.integers(len(others)))].image
        image[outside] = cv2.blur(cv2.resize(other, image.shape[1::-1]), (9, 9))[outside]
    return image


def cut(rng, image, points, unit, strength, inside=None, others=()):
    """A crop as the engine would hand it over, had the scene been before another camera, near or far. The same for live faces and attacks.

    strength: how different that camera is; 0.4 is what the shipped network was made with. At 1 too little of the tone is left that tells
    many screens."""
    if inside is not None and rng.random() < 0.6:
        image = _surroundings(rng, image, inside, others)
    if rng.random() < 0.7 * strength:
        scale = min(1.0, np.exp(rng.uniform(np.log(min(unit, 66.0)), np.log(min(unit, 210.0)))) / unit)
        if scale < 0.97:
            small = cv2.resize(image, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA if rng.random() < 0.6 else cv2.INTER_LINEAR)
            points, unit, image = (points + 0.5) * small.shape[0] / image.shape[0] - 0.5, unit * scale, small
    image = cv2.LUT(image, _tone(rng, strength))
    less, more = rng.random() < 0.12 * strength, rng.random() < 0.25 * strength
    if less or more:  # saturation
        grey = cv2.cvtColor(image, cv2.COLOR_BGR2GRAY)[..., None].repeat(3, 2)
        share = min(rng.uniform(0, 1.6), 1) if less else rng.uniform(-0.4, 0)
        image = cv2.addWeighted(image, 1 - share, grey, share, 0)
    if rng.random() < 0.35 * strength:
        image = cv2.GaussianBlur(image, (0, 0), rng.uniform(0.3, 1.3) * max(unit / faces.CROP, 0.6))
    elif rng.random() < 0.25 * strength:
        soft, gain = cv2.GaussianBlur(image, (0, 0), rng.uniform(0.7, 1.5)), rng.uniform(0.3, 1.5)
        image = cv2.addWeighted(image, 1 + gain, soft, -gain, 0)
    if rng.random() < 0.4 * strength and max(image.shape) < len(NOISE):
        y, x = (int(rng.integers(0, len(NOISE) - n)) for n in image.shape[:2])
        noise = NOISE[y:y + image.shape[0], x:x + image.shape[1]] * np.float32(rng.uniform(0.5, 7))
        image = np.clip(image + noise, 0, 255).astype(np.uint8)
    if rng.random() < 0.55 * strength:
        image = cv2.imdecode(cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, int(rng.integers(45, 97))])[1], 1)
    m = faces.similarity(points + rng.normal(0, 0.02, 2) * unit + rng.normal(0, 0.012, (5, 2)) * unit, faces.TEMPLATE)
    if rng.random() < 0.3:  # a head that is tilted, a box that is too large
        turn, centre = np.deg2rad(rng.normal(0, 5)), faces.CROP / 2
        linear = np.array([[np.cos(turn), -np.sin(turn)], [np.sin(turn), np.cos(turn)]]) * np.exp(rng.normal(0, 0.05))
        m = np.hstack([linear @ m[:, :2], (linear @ (m[:, 2] - centre) + centre)[:, None]])
    crop = cv2.warpAffine(image, m, (faces.CROP, faces.CROP), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
    if rng.random() < 0.3:  # hands, hair, the sign of a player
        w, h = (int(n) for n in rng.integers(10, 50, 2))
        x, y = int(rng.integers(0, faces.CROP - w)), int(rng.integers(0, faces.CROP - h))
        other = others[int(rng.integers(len(others)))].crop if len(others) and rng.random() < 0.5 else None
        crop[y:y + h, x:x + w] = rng.integers(0, 256, 3) if other is None else other[y:y + h, x:x + w]
    return crop
