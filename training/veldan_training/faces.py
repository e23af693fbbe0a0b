"""Faces for the networks that judge a face: where they come from, patches of the scene around them, and what the library cuts.

A patch is the scene around one face at the resolution of some camera frame. Damage, masks and attacks are put on the patch;
then the patch is treated like a frame of the library: a box is set as the detector sets it, and the crop is cut exactly as
the engine cuts it. All coordinates are measured from pixel edges, as everywhere in the training.
"""
import csv
import zipfile
from dataclasses import dataclass

import cv2
import numpy as np

from . import photos, refinement

BARE, MASKED, INCORRECT, UNKNOWN = 0, 1, 2, -1
MASK_CLASSES = {"without_mask": BARE, "with_mask": MASKED, "mask_weared_incorrect": INCORRECT}
# The other aligned packs repeat photos of both splits: helen and net do so by their names, and of nomask 27 faces were found
# among the validation photos of mask_close.
FACE_PACKS = ("utk", "pins", "celeba")
PEOPLE = ("helen", "groups", "portraits", "mask_close", "net80")

# The template of the five-point alignment for a 112 x 112 crop.
TEMPLATE = np.array([[38.2946, 51.6953], [73.5318, 51.5014], [56.0252, 71.7366], [41.5493, 92.3655], [70.7299, 92.2041]])
CROP = 112


@dataclass
class Face:
    pack: str
    name: str
    image: np.ndarray
    box: np.ndarray      # left, top, width, height
    points: np.ndarray   # 5 x 2, not a number where unknown
    human: bool          # points set by people
    mask: int

    @property
    def side(self):
        return float(max(self.box[2:]))

    @property
    def has_points(self):
        return bool(np.isfinite(self.points).all())


def _people_masks(data):
    """{file: [(box, class)]} by people."""
    out = {}
    with open(f"{data}/photos/groups.masks.csv", newline="") as f:
        for r in csv.reader(f):
            if r and r[0] != "file":
                out.setdefault(r[0], []).append((np.array([float(a) for a in r[1:5]]), MASK_CLASSES[r[5]]))
    return out


def from_photos(data, split="train", subset="fit", packs=PEOPLE, least=14):
    """Every certain face of at least `least` pixels. Teacher points have their systematic difference from people's taken out."""
    correction, people, out = refinement.Correction(data), _people_masks(data), []
    for photo in photos.load(data, split, packs=list(packs), subset=subset):
        largest = int(np.argmax(photo.boxes[:, 2] * photo.boxes[:, 3])) if len(photo.boxes) else -1
        for k in np.flatnonzero(photo.certain):
            box = photo.boxes[k].astype(np.float64)
            if max(box[2:]) < least:
                continue
            mask = BARE
            if photo.pack == "groups":
                marked = people.get(photo.name, [])
                overlaps = photos.overlap(box, [b for b, _ in marked]) if marked else np.zeros(1)
                mask = marked[int(overlaps.argmax())][1] if overlaps.max() > 0.35 else UNKNOWN
            elif photo.pack == "mask_close":
                # The name is about the face that the close-up is made for.
                mask = (BARE if photo.name.startswith("without_mask") else MASKED) if k == largest else UNKNOWN
            points = photo.points[k].astype(np.float64)
            if np.isfinite(points).all() and not photo.human[k]:
                points = correction(points, box)
            out.append(Face(photo.pack, photo.name, photo.image, box, points.reshape(5, 2), bool(photo.human[k]), mask))
    return out


def aligned_faces(data, packs, development=False):
    """(pack, identity or "", Face) of the aligned faces, 128 x 128 with 8 pixels around the crop. The teacher's points there
    follow the same correction."""
    correction = refinement.Correction(data)
    for pack in packs:
        with zipfile.ZipFile(f"{data}/faces/{pack}.zip") as z, open(f"{data}/faces/{pack}.csv", newline="") as f:
            members = {n.split("/")[-1]: n for n in z.namelist()}
            for r in csv.reader(f):
                if not r or r[0] == "file" or r[0] not in members or photos.is_development(r[0]) != development:
                    continue
                points = np.array([float(v) for v in r[2:12]])
                image = cv2.imdecode(np.frombuffer(z.read(members[r[0]]), np.uint8), cv2.IMREAD_COLOR)
                box = photos.box_of_points(points)
                yield pack, r[1], Face("faces", r[0], image, box, correction(points, box).reshape(5, 2), False, BARE)


def from_face_packs(data, packs=FACE_PACKS, development=False):
    return [face for _, _, face in aligned_faces(data, packs, development)]


def similarity(points, target):
    """2 x 3 least-squares similarity that takes points to target, the fit of the library's alignment."""
    a = np.zeros((2 * len(points), 4))
    a[0::2, 0], a[0::2, 1], a[0::2, 2] = points[:, 0], points[:, 1], 1
    a[1::2, 0], a[1::2, 1], a[1::2, 3] = points[:, 1], -points[:, 0], 1
    r = np.linalg.pinv(a) @ target.reshape(-1)
    return np.array([[r[0], r[1], r[2]], [-r[1], r[0], r[3]]])


def corners(points):
    """Where (0, 0) and (112, 112) of the aligned crop lie in the photo."""
    m = similarity(points, TEMPLATE)
    return (np.array([[0.0, 0.0], [CROP, CROP]]) - m[:, 2]) @ np.linalg.inv(m[:, :2]).T


def align(image, points, target=TEMPLATE):
    """The library's aligned crop. It counts from pixel centres and gets its points cut to whole pixels."""
    return cv2.warpAffine(image, similarity(np.floor(points), target), (CROP, CROP), flags=cv2.INTER_LINEAR)


TWO_CORNERS = np.array([[0.0, 0.0], [CROP, CROP]])


@dataclass
class Patch:
    image: np.ndarray
    box: np.ndarray      # left, top, width, height of an upright box around the face
    points: np.ndarray   # 5 x 2


def patch(rng, face, side, turn=0.0, mirror=None, reach=0.85, fill=False):
    """The scene around a face whose box is to have `side` pixels; turn: standard deviation of the rotation in degrees.

    Outside the photo is black, as in the library; fill: the photo goes on as its reflection, for what is to become a scene."""
    step = face.side / side                                     # photo pixels a patch pixel
    centre = face.box[:2] + face.box[2:] / 2
    size = int(round(2 * reach * side))
    angle = np.deg2rad(np.clip(rng.normal(0, turn), -35, 35)) if turn else 0.0
    flip = -1.0 if (rng.random() < 0.5 if mirror is None else mirror) else 1.0
    rot = np.array([[np.cos(angle), -np.sin(angle)], [np.sin(angle), np.cos(angle)]])
    linear = step * rot @ np.diag([flip, 1.0])
    offset = centre - linear @ np.full(2, size / 2) + linear @ np.full(2, 0.5) - 0.5
    image = face.image
    if step > 2:  # like a camera: no aliasing while the scene becomes a frame
        k = int(step)
        h, w = image.shape[0] // k * k, image.shape[1] // k * k
        image = cv2.resize(image[:h, :w], (w // k, h // k), interpolation=cv2.INTER_AREA)
        shrunk, shrunk_offset = linear / k, (offset + 0.5) / k - 0.5
    else:
        shrunk, shrunk_offset = linear, offset
    border = cv2.BORDER_REFLECT if face.pack == "faces" or fill else cv2.BORDER_CONSTANT
    image = cv2.warpAffine(image, np.hstack([shrunk, shrunk_offset[:, None]]), (size, size),
                           flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP, borderMode=border)
    points = (face.points - centre) @ np.linalg.inv(linear).T + size / 2
    if flip < 0:
        points = points[photos.MIRROR]
    w, h = face.box[2:] / step
    return Patch(image, np.array([size / 2 - w / 2, size / 2 - h / 2, w, h]), points)


def detector_box(rng, box, spread=1.0):
    """A box as the detector sets it: whole pixels, off by what it is off on training photos (in sides)."""
    x, y, w, h = box
    side = max(w, h)
    dx, dy = rng.normal(0, 0.035 * spread, 2) * side
    if rng.random() < 0.1:
        dx, dy = rng.normal(0, 0.08 * spread, 2) * side
    grow = np.exp(rng.normal(0, 0.07 * spread))
    nw, nh = w * grow * np.exp(rng.normal(0, 0.05 * spread)), h * grow * np.exp(rng.normal(0, 0.03 * spread))
    return int(x + w / 2 + dx - nw / 2), int(y + h / 2 + dy - nh / 2), max(2, int(nw)), max(2, int(nh))


def square_crop(image, x, y, w, h, size):
    """get_crop of the library, and the left, top and side of the square it used."""
    side = max(w, h)
    cx, cy = x + int((w - side) / 2), y + int((h - side) / 2)
    rows, cols = image.shape[:2]
    if cx < 0 or cy < 0 or cx + side > cols or cy + side > rows:
        piece = np.zeros((side, side, 3), np.uint8)
        x1, y1, x2, y2 = max(cx, 0), max(cy, 0), min(cx + side, cols), min(cy + side, rows)
        if x2 > x1 and y2 > y1:
            piece[y1 - cy:y2 - cy, x1 - cx:x2 - cx] = image[y1:y2, x1:x2]
    else:
        piece = image[cy:cy + side, cx:cx + side]
    return cv2.resize(piece, (size, size), interpolation=cv2.INTER_LINEAR), (cx, cy, side)


def clipped_crop(image, x, y, w, h, size):
    """The quality engine's crop: the square's part inside the image, stretched to size x size."""
    side = max(w, h)
    cx, cy = x + int((w - side) / 2), y + int((h - side) / 2)
    piece = image[max(cy, 0):min(cy + side, image.shape[0]), max(cx, 0):min(cx + side, image.shape[1])]
    return cv2.resize(piece, (size, size), interpolation=cv2.INTER_LINEAR)
