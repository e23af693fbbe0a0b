#!/usr/bin/env python3
"""Writes validation photos for what no labelled photos exist of: damaged faces with the damage's level, and attacks.

    training/make_validation.py quality --data DATA --out FOLDER
    training/make_validation.py liveness --data DATA --out FOLDER

Every photo shows one face of the validation split with its surroundings, so that the detector has something to find.
photos.csv beside them says what was done: for quality file,source,kind,level, for liveness
file,light,class,kind,held_out. The same seed gives the same photos.
"""
import argparse
import csv
import os
import sys
import zlib

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from veldan_training import attacks, damage, faces, photos  # noqa: E402

LEVELS = (0.2, 0.4, 0.6, 0.8, 1.0)
QUALITY = 97  # of the JPEG files: what was drawn must survive it


def randomness(seed, *what):
    return np.random.default_rng([seed, zlib.crc32("/".join(map(str, what)).encode())])


def validation_faces(args, least):
    """Faces that stand alone: no other label within the part of the photo that is written."""
    found = [f for f in faces.from_photos(args.data, "val", None, ("helen", "portraits", "mask_close", "groups"), least)
             if f.has_points and f.mask != faces.UNKNOWN]
    labels = {(p.pack, p.name): p.boxes for p in photos.load(args.data, "val", packs=["helen", "portraits", "mask_close", "groups"])}
    alone = []
    for f in found:
        x1, y1, x2, y2 = region(f)
        others = sum(1 for x, y, w, h in labels[f.pack, f.name]
                     if min(x + w, x2) - max(x, x1) > 0.3 * w and min(y + h, y2) - max(y, y1) > 0.3 * h)
        if others <= 1:
            alone.append(f)
    return alone


def region(face):
    """The part of the photo that is written: the face and two thirds of its size around it, as far as the photo goes."""
    x, y, w, h = face.box
    m = 0.65 * face.side
    return (max(0, int(x - m)), max(0, int(y - m)), min(face.image.shape[1], int(x + w + m)), min(face.image.shape[0], int(y + h + m)))


def inside(face):
    x, y, w, h = face.box
    return x >= 0 and y >= 0 and x + w <= face.image.shape[1] and y + h <= face.image.shape[0]


def scene(face, side):
    """The region scaled so that the face has `side` pixels: picture, box, points."""
    x1, y1, x2, y2 = region(face)
    f = max(side / face.side, 110 / min(x2 - x1, y2 - y1))  # the library refuses frames under 100 pixels
    image = cv2.resize(face.image[y1:y2, x1:x2], None, fx=f, fy=f, interpolation=cv2.INTER_AREA if f < 1 else cv2.INTER_LINEAR)
    return image, (face.box - [x1, y1, 0, 0]) * f, (face.points - [x1, y1]) * f


class Writer:
    def __init__(self, folder, header):
        os.makedirs(folder, exist_ok=True)
        self.folder, self.header, self.rows = folder, header, []

    def add(self, name, image, *row):
        cv2.imwrite(os.path.join(self.folder, name), image, [cv2.IMWRITE_JPEG_QUALITY, QUALITY])
        self.rows.append((name,) + row)

    def close(self):
        with open(os.path.join(self.folder, "photos.csv"), "w", newline="") as f:
            csv.writer(f, lineterminator="\n").writerows([self.header] + self.rows)
        print(f"{len(self.rows)} photos in {self.folder}")


def pick(seed, group, count, *what):
    order = randomness(seed, "pick", *what).permutation(len(group))
    return [group[int(i)] for i in order[:count]]


def quality(args):
    out = Writer(args.out, ("file", "source", "kind", "level"))
    found = [f for f in validation_faces(args, 60) if inside(f)]
    frontal = [f for f in found if damage.pose_level(f.points) < 0.1 and f.mask == faces.BARE]
    print(f"{len(found)} faces, {len(frontal)} of them bare and frontal")

    def side_of(face, *what):
        return float(np.clip(randomness(args.seed, "side", face.name, *what).uniform(80, 200), 60, face.side * 1.1))

    def source(face):
        return f"{face.pack}/{face.name}"

    for i, face in enumerate(frontal):
        out.add(f"none_{i:04d}.jpg", scene(face, side_of(face))[0], source(face), "none", 0)
    for i, face in enumerate(f for f in found if f.mask > 0 and damage.pose_level(f.points) < 0.1):
        out.add(f"masked_{i:04d}.jpg", scene(face, side_of(face))[0], source(face), "masked", 0)
    # Turned heads are real ones: the level comes from where the nose is between the eyes.
    for i, face in enumerate(f for f in found if f.mask == faces.BARE and damage.pose_level(f.points) >= 0.1):
        out.add(f"pose_{i:04d}.jpg", scene(face, side_of(face))[0], source(face), "pose", round(damage.pose_level(face.points), 3))
    for kind in damage.KINDS:
        for level in LEVELS:
            for i, face in enumerate(pick(args.seed, frontal, args.count or 40, kind, level)):
                image, box, _ = scene(face, side_of(face, kind, level))
                image, _ = damage.apply(randomness(args.seed, kind, level, face.name), kind, image, box, level)
                if min(image.shape[:2]) < 110:  # half faces: the frame goes on where the face is not cut
                    image = cv2.resize(image, None, fx=110 / min(image.shape[:2]), fy=110 / min(image.shape[:2]))
                out.add(f"{kind.replace(' ', '_')}_{int(100 * level):03d}_{i:03d}.jpg", image, source(face), kind, level)
    out.close()


def liveness(args):
    out = Writer(args.out, ("file", "light", "class", "kind", "held_out"))
    found = [f for f in validation_faces(args, 70) if inside(f)]
    bare, masked = [f for f in found if f.mask == faces.BARE], [f for f in found if f.mask > 0]
    print(f"{len(bare)} bare faces, {len(masked)} with masks")

    def add(light, face, kind, number, held_out=0, camera=0.5, label=None):
        rng = randomness(args.seed, light, kind, face.name)
        image, _, points = scene(face, float(np.clip(rng.uniform(110, 200), 80, face.side * 1.3)))
        crop_corners = faces.corners(points)
        unit = float(np.hypot(*(crop_corners[1] - crop_corners[0])) / np.sqrt(2))
        attack = kind if label is None else None
        if light == "nir":
            image = attacks.near_infrared_attack(rng, attack, image, points, unit) if attack else attacks.near_infrared(rng, image, points, unit)
        elif attack:
            image = attacks.attack(rng, attack, image, unit, crop_corners.mean(0))
        if attack or camera:
            image = attacks.camera(rng, image, camera)
        image = np.clip(image, 0, 255).astype(np.uint8)
        if image.ndim == 2:
            image = cv2.cvtColor(image, cv2.COLOR_GRAY2BGR)
        out.add(f"{light}_{kind.replace(' ', '_')}_{number:03d}.jpg", image, light, label or "attack", kind, held_out)

    for light, kinds, held_out in (("visible", attacks.PRINTS + attacks.SCREENS, attacks.HELD_OUT),
                                   ("nir", attacks.NIR_KINDS, attacks.NIR_HELD_OUT)):
        for i, face in enumerate(pick(args.seed, bare, 5 * (args.count or 60), light)):
            add(light, face, "plain", i, camera=0, label="live")
        for i, face in enumerate(pick(args.seed, bare, 5 * (args.count or 60), light, "camera")):
            add(light, face, "other camera", i, label="live")
        for i, face in enumerate(pick(args.seed, masked, 2 * (args.count or 60), light)):
            add(light, face, "masked", i, camera=0, label="live")
        for kind in kinds + held_out:
            for i, face in enumerate(pick(args.seed, bare, args.count or 60, light, kind)):
                add(light, face, kind, i, int(kind in held_out))
    out.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=["quality", "liveness"])
    parser.add_argument("--data", required=True, help="folder with photos/")
    parser.add_argument("--out", required=True, help="folder for the photos and photos.csv")
    parser.add_argument("--count", type=int, help="faces for each kind and level (default: quality 40, liveness 60)")
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args()
    cv2.setNumThreads(1)
    (quality if args.what == "quality" else liveness)(args)


if __name__ == "__main__":
    main()
