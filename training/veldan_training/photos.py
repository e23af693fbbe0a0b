"""Reads the photo packs: pictures, boxes, points and their split."""
import csv
import os
import zipfile
import zlib
from dataclasses import dataclass, replace

import cv2
import numpy as np

ANIMALS = ("misc", "scenes", "pets", "streets", "trash")
FACE_SCORE = 0.6  # labels below this score are neither face nor background


@dataclass
class Photo:
    pack: str
    name: str
    image: np.ndarray     # height x width x 3, uint8, blue green red
    boxes: np.ndarray     # n x 4: left, top, width, height
    certain: np.ndarray   # n: True for a face, False for a region to ignore
    points: np.ndarray    # n x 10: x0, y0, .. x4, y4 (not a number where unknown)
    human: np.ndarray     # n: points set by people
    frame: tuple = None   # left, top, right, bottom of the photo that this is a piece of; None: it is whole


def is_development(name):
    """A twelfth of the training photos is kept out of training, for every decision that needs figures on unseen photos.

    The validation photos are never looked at for that."""
    return zlib.crc32(name.encode()) % 12 == 0


def overlap(box, boxes):
    """Intersection over union of one box with many; all left, top, width, height."""
    boxes = np.asarray(boxes, np.float64).reshape(-1, 4)
    iw = np.minimum(box[0] + box[2], boxes[:, 0] + boxes[:, 2]) - np.maximum(box[0], boxes[:, 0])
    ih = np.minimum(box[1] + box[3], boxes[:, 1] + boxes[:, 3]) - np.maximum(box[1], boxes[:, 1])
    inter = np.maximum(iw, 0) * np.maximum(ih, 0)
    return inter / np.maximum(box[2] * box[3] + boxes[:, 2] * boxes[:, 3] - inter, 1e-9)


def rows(path):
    """Of a comma-separated table, without its heading; none where there is no file."""
    if not os.path.exists(path):
        return []
    with open(path, newline="") as f:
        return [r for r in csv.reader(f) if r and r[0] != "file"]


def box_of_points(points):
    """The box that the teacher would set around five points (measured on its own labels)."""
    p = points.reshape(5, 2)
    centre = p.mean(0)
    size = np.sqrt(((p - centre) ** 2).sum(1).mean())
    h = size * 4.63
    w = 0.749 * h
    return np.array([centre[0] - w / 2, centre[1] - 0.072 * h - h / 2, w, h])


def _add_human_points(faces, points):
    """Gives human points to the face that they belong to.

    People name pixels, so a point means the middle of its pixel; everything here measures from pixel edges. On a face of
    50 pixels the half pixel is 3 % of the eye distance.
    A part of one pack has its points moved up by half a face; the shape is right, so they are moved back onto the
    teacher's points. Where the teacher saw no face, the points themselves say where it is."""
    points = points + 0.5
    centre, best, best_distance = points.reshape(5, 2).mean(0), None, 0.35
    for face in faces:
        x, y, w, h = face[0]
        if face[1] and abs(centre[0] - x - w / 2) < 0.2 * w and -0.75 * h < centre[1] - y - h / 2 < -0.3 * h:
            shift = face[2].reshape(5, 2).mean(0) + 0.5 - centre
            points, centre = points + np.tile(shift, 5), centre + shift
            break
    for face in faces:
        x, y, w, h = face[0]
        distance = np.hypot((centre[0] - x - w / 2) / w, (centre[1] - y - h / 2) / h)
        if distance < best_distance:
            best, best_distance = face, distance
    if best is not None:
        best[1:] = [True, points, True]
    elif not any(f[1] for f in faces):
        faces.append([box_of_points(points), True, points, True])


def teacher_faces(folder, pack):
    """(file, box, points, score) of each of the teacher's labels as it stands in the pack, certain or not."""
    for name, *values in rows(f"{folder}/{pack}.labels.csv"):
        v = np.array([float(a) for a in values])
        yield name, v[:4], v[4:14], v[14]


def _labels(folder, pack):
    """{file: [(box, certain, points, human)]} from the pack's label, landmark and mask files."""
    faces = {}
    for name, box, points, score in teacher_faces(folder, pack):
        faces.setdefault(name, []).append([box, score >= FACE_SCORE, points, False])
    for r in rows(f"{folder}/{pack}.landmarks.csv"):
        points = np.array([float(a) for a in r[1:11]])
        _add_human_points(faces.setdefault(r[0], []), points)
    for r in rows(f"{folder}/{pack}.masks.csv"):
        box = np.array([float(a) for a in r[1:5]])
        near = [f for f in faces.get(r[0], []) if overlap(box, f[0])[0] > 0.35]
        if not any(f[1] for f in near):
            # A face that a person marked and the teacher missed or doubted.
            faces[r[0]] = [f for f in faces.get(r[0], []) if not any(f is n for n in near)]
            faces[r[0]].append([box, True, np.full(10, np.nan), False])
    return faces


def load(data, split="train", packs=None, subset=None, doubt_animals=False):
    """split: train or val. subset: None for all, "fit" without the development photos, "development" only those.

    doubt_animals: the packs of scenes and animals have nearly no people, and what the teacher calls a face there is mostly
    a dog, a cat or a horse; such labels are then neither face nor background."""
    folder, photos = os.path.join(data, "photos"), []
    for pack in packs or ["helen", "groups", "portraits", "net80", "mask_close", "misc", "scenes", "pets", "streets", "trash"]:
        faces = _labels(folder, pack)
        with zipfile.ZipFile(f"{folder}/{pack}.zip") as z:
            members = {os.path.basename(n): n for n in z.namelist()}
            for r in rows(f"{folder}/{pack}.images.csv"):
                if r[3] != split or r[0] not in members:
                    continue
                if subset and is_development(r[0]) != (subset == "development"):
                    continue
                image = cv2.imdecode(np.frombuffer(z.read(members[r[0]]), np.uint8), cv2.IMREAD_COLOR)
                f = faces.get(r[0], [])
                if doubt_animals and pack in ANIMALS:
                    f = [[box, False, points, human] for box, _, points, human in f]
                photos.append(Photo(pack, r[0], image, np.array([a[0] for a in f], np.float32).reshape(-1, 4),
                                    np.array([a[1] for a in f], bool), np.array([a[2] for a in f], np.float32).reshape(-1, 10),
                                    np.array([a[3] for a in f], bool)))
    return photos


MIRROR = [1, 0, 2, 4, 3]


def mirror_points(points, width):
    """Points of the mirrored picture: left and right change places, so eyes and mouth corners swap."""
    p = points.reshape(-1, 5, 2)[:, MIRROR].copy()
    p[..., 0] = width - p[..., 0]
    return p.reshape(points.shape)


def mirrored(photo):
    boxes, width = photo.boxes.copy(), photo.image.shape[1]
    boxes[:, 0] = width - boxes[:, 0] - boxes[:, 2]
    return replace(photo, image=photo.image[:, ::-1].copy(), boxes=boxes, points=mirror_points(photo.points, width))


EVERYDAY = ("people", "sports", "fashion", "weapons", "babies")
BACKGROUND = ("clothes", "kitchen_hands")  # what the teacher sees there is neither face nor background


def upright(points):
    """Whether the way from the eyes to the mouth leads down, give or take 50 degrees; points: n x 10."""
    p = np.asarray(points).reshape(-1, 5, 2)
    down = p[:, 3:].mean(1) - p[:, :2].mean(1)
    return np.abs(np.arctan2(down[:, 0], down[:, 1])) < np.deg2rad(50)


def profile(points):
    """Whether the nose lies beyond the eyes along the line through them, as in heads turned by 60 degrees and more."""
    p = np.asarray(points).reshape(-1, 5, 2)
    across = p[:, 1] - p[:, 0]
    place = ((p[:, 2] - p[:, 0]) * across).sum(1) / np.maximum((across ** 2).sum(1), 1e-6)
    return (place < 0) | (place > 1)


def certain_everyday(scores, mirrored):
    """Faces of a teacher that looked twice, at the photo and at its mirror image."""
    high, low = np.maximum(scores, mirrored), np.minimum(scores, mirrored)
    return (low >= 0.5) | ((high >= 0.7) & (low >= 0.3))


@dataclass
class Listed:
    """A photo that is decoded when it is needed."""
    path: str
    photo: Photo  # without a picture

    def read(self, longer=None):
        """longer: the most that the longer side may have; the photo is made smaller for it."""
        photo = replace(self.photo, image=cv2.imread(self.path, cv2.IMREAD_COLOR))
        scale = longer / max(photo.image.shape[:2]) if longer else 1
        if scale >= 1:
            return photo
        image = cv2.resize(photo.image, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
        return replace(photo, image=image, boxes=photo.boxes * np.float32(scale), points=photo.points * np.float32(scale))


def everyday(folder, split="train", packs=EVERYDAY + BACKGROUND, subset=None):
    """Photos of everyday scenes, decoded on demand: FOLDER/PACK/*, PACK.csv (file, source, class, split), PACK.labels.csv
    (file, box, points, score, score on the mirror image). split and subset as in load."""
    listed = []
    for pack in packs:
        labels = {}
        for name, *values in rows(os.path.join(folder, f"{pack}.labels.csv")):
            labels.setdefault(name, []).append([float(v) for v in values])
        for row in rows(os.path.join(folder, f"{pack}.csv")):
            if row[3] != split or (subset and is_development(f"{pack}/{row[0]}") != (subset == "development")):
                continue
            v = np.array(labels.get(row[0], []), np.float32).reshape(-1, 16)
            certain = certain_everyday(v[:, 14], v[:, 15]) & upright(v[:, 4:14]) & (pack not in BACKGROUND)
            listed.append(Listed(os.path.join(folder, pack, row[0]),
                                 Photo(pack, row[0], None, v[:, :4], certain, v[:, 4:14], np.zeros(len(v), bool))))
    return listed
