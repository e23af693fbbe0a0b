#!/usr/bin/env python3
"""Aligned faces with the teacher's answers, for the recognizers: training/make_faces.py --data FOLDER [--more FOLDER --library FILE].

Continues where it was interrupted. With --small it writes the faces once more, in files that travel: see training/README.md."""
import argparse
import concurrent.futures
import csv
import os
import time
import zipfile
import zlib

import cv2
import numpy as np

from veldan_training import face_store, faces, refinement
from veldan_training.face_store import AROUND, SIDE

PACKS = ("utk", "pins", "celeba", "net", "helen", "nomask")
PHOTO_PACKS = ("portraits", "groups", "mask_close")
# Packs of --more: one face a picture, or all.
PORTRAITS = ("ages", "smiles", "portraits160", "retouched")
SCENES = ("people", "sports", "fashion")
HELD_OUT = {"pins": 15}         # people that no recognizer is trained on
DEVELOPMENT_PACK = "portraits160"  # its split `val` likewise
AT_ONCE = 500                   # pictures a file
LEAST_QUALITY = 30              # of a face found in a scene, as the library judges it
LEAST_SIDE = 45
MIDDLE = (SIDE - 1) / 2


def held_out(identities, count):
    """The same people on every machine."""
    return set(sorted(identities, key=lambda name: (zlib.crc32(name.encode()), name))[:count])


def library_crop(points):
    """3 x 3 around the middle: to the library's crop out of the pack's. points: in the picture, where people would set them."""
    m = np.eye(3)
    m[:2] = faces.similarity(points - 0.5, faces.TEMPLATE + AROUND)
    m[:2, 2] = m[:2] @ [MIDDLE, MIDDLE, 1] - MIDDLE
    # Of a face in profile the correction knows nothing.
    return m if 0.9 < np.sqrt(np.linalg.det(m)) < 1.25 and np.abs(m[:2, 2]).max() < 6 else np.eye(3)


def rows_of(path):
    with open(path, newline="", encoding="utf8") as f:
        return list(csv.reader(f))[1:]


class Maker:
    """What every file needs; one a process."""

    def __init__(self, args):
        from veldan_training.teacher import Teacher
        cv2.setNumThreads(1)
        self.args, self.teacher = args, Teacher(args.data)
        self.correction = refinement.Correction(args.data)
        self.typical = np.median([self.corrected_crop(r) for r in rows_of(f"{args.data}/faces/utk.csv")[:1000]], axis=0)
        self.library = None

    def corrected_crop(self, row):
        points = np.array([float(v) for v in row[2:12]])
        return library_crop(self.correction(points, faces.photos.box_of_points(points)).reshape(5, 2))

    def answers(self, images):
        plain = np.stack(images)[:, AROUND:-AROUND, AROUND:-AROUND, ::-1]
        return np.stack([self.teacher.embed(plain).numpy(), self.teacher.embed(plain[:, :, ::-1]).numpy()], 1)

    def aligned(self, pack, part):
        rows = [r for r in rows_of(f"{self.args.data}/faces/{pack}.csv") if r]
        kept_out = held_out({r[1] for r in rows if r[1]}, HELD_OUT.get(pack, 0))
        with zipfile.ZipFile(f"{self.args.data}/faces/{pack}.zip") as z:
            members = {n.split("/")[-1]: n for n in z.namelist()}
            for r in rows[part * AT_ONCE:(part + 1) * AT_ONCE]:
                data = z.read(members[r[0]])
                yield data, cv2.imdecode(np.frombuffer(data, np.uint8), 1), f"{pack} {r[1]}" if r[1] else "", self.corrected_crop(r), r[1] in kept_out

    def out_of_photos(self):
        for face in faces.from_photos(self.args.data, packs=PHOTO_PACKS, least=40):
            if face.mask == faces.BARE and face.has_points:
                m = faces.similarity(face.points - 0.5, faces.TEMPLATE + AROUND)
                yield None, cv2.warpAffine(face.image, m, (SIDE, SIDE), borderMode=cv2.BORDER_REFLECT), "", np.eye(3), False

    def found(self, pack, part):
        """By the library. The picture is cut so that the typical difference between the two ways to cut leads to its crop."""
        if self.library is None:
            from veldan_training.library import Library
            self.library = Library(self.args.library)
        back = np.linalg.inv(self.typical)
        middle = np.eye(3)
        middle[:2, 2] = MIDDLE
        back = middle @ back @ np.linalg.inv(middle)
        for r in rows_of(f"{self.args.more}/{pack}.csv")[part * AT_ONCE:(part + 1) * AT_ONCE]:
            file, split = r[0], r[3]
            kept_out = split == "val" and pack == DEVELOPMENT_PACK
            image = cv2.imread(f"{self.args.more}/{pack}/{file}") if split == "train" or kept_out else None
            if image is None:
                continue
            scale = 1.0
            if max(image.shape[:2]) > 1280 or max(image.shape[:2]) < 300:
                scale = (1280 if max(image.shape[:2]) > 1280 else 320) / max(image.shape[:2])
                image = cv2.resize(image, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA if scale < 1 else cv2.INTER_LINEAR)
            border = max(image.shape[:2]) // 4 if pack in PORTRAITS else 0  # many are cut close to the face
            boxes, points, quality = self.library.faces(cv2.copyMakeBorder(image, *[border] * 4, cv2.BORDER_CONSTANT, value=(127,) * 3))
            for k in range(min(len(boxes), 1) if pack in PORTRAITS else len(boxes)):
                if pack in SCENES and (quality[k] < LEAST_QUALITY or max(boxes[k, 2:]) < LEAST_SIDE):
                    continue
                m = np.vstack([faces.similarity(points[k] - border, faces.TEMPLATE + AROUND), [0, 0, 1]])
                yield None, cv2.warpAffine(image, (back @ m)[:2], (SIDE, SIDE), borderMode=cv2.BORDER_REFLECT), "", self.typical, kept_out

    def write(self, name, pack, part):
        started = time.time()
        source = self.aligned(pack, part) if pack in PACKS else self.out_of_photos() if pack == "photos" else self.found(pack, part)
        rows = list(source)
        path = os.path.join(self.args.out, name)
        images = [image for _, image, *_ in rows]
        pictures = [data or face_store.encode(image, 92) for data, image, *_ in rows]
        found = time.time()
        face_store.write(path, pictures, *([r[i] for r in rows] for i in (2, 3, 4)), self.answers(images) if rows else None)
        return f"{name}: {len(rows)} faces, {found - started:.0f} s to find and {time.time() - found:.0f} s for the teacher"


def parts(args):
    """(file, pack, part) of everything that the folders have."""
    lists = [(p, f"{args.data}/faces/{p}.csv") for p in PACKS]
    if args.more:
        lists += [(p, f"{args.more}/{p}.csv") for p in PORTRAITS + SCENES if os.path.exists(f"{args.more}/{p}.csv")]
    for pack, path in lists:
        for part in range(-(-len(rows_of(path)) // AT_ONCE)):
            yield f"{pack}-{part:03}.npz", pack, part
    yield "photos-000.npz", "photos", 0


def small(args):
    """Files of at most --limit MiB without answers, in an order that makes any of them a fair sample; nothing of the development faces."""
    rows = [r for r in face_store.stored(args.out) if not r[3]]
    held, size, count = [], 0, 0
    os.makedirs(args.small, exist_ok=True)

    def flush():
        nonlocal held, size, count
        face_store.write(os.path.join(args.small, f"part-{count}.npz"), *zip(*held))
        print(f"part-{count}: {len(held)} faces, {size / 2 ** 20:.1f} MiB")
        held, size, count = [], 0, count + 1

    for k in np.random.default_rng(1).permutation(len(rows)):
        data, name, crop, _, _ = rows[k]
        data = face_store.encode(cv2.imdecode(np.frombuffer(data, np.uint8), 1), args.quality)
        if size + len(data) + 36 + 128 > args.limit * 2 ** 20:
            flush()
        held.append((data, name, crop, False))
        size += len(data) + 36 + 128  # and its crop and name
    flush()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--data", help="folder with photos/, faces/ and teacher/")
    parser.add_argument("--more", help="folder of further packs: NAME.csv (file, source, class, split) and NAME/")
    parser.add_argument("--library", default="build/release/src/libveldan.so", help="finds the faces of --more (default: %(default)s)")
    parser.add_argument("--out", default="training/work/faces", help="(default: %(default)s)")
    parser.add_argument("--jobs", type=int, default=1, help="processes")
    parser.add_argument("--only", nargs="+", metavar="PACK", help="of these packs")
    parser.add_argument("--parts", type=int, help="at most so many files, to try it")
    parser.add_argument("--small", metavar="FOLDER", help="write what --out has in fewer bytes to FOLDER, and nothing else")
    parser.add_argument("--limit", type=float, default=28, help="MiB a file of --small (default: %(default)s)")
    parser.add_argument("--quality", type=int, default=60, help="of the pictures of --small (default: %(default)s)")
    args = parser.parse_args()
    if args.small:
        small(args)
        return
    if not args.data:
        parser.error("--data is needed")
    os.makedirs(args.out, exist_ok=True)
    wanted = [p for p in parts(args) if not os.path.exists(os.path.join(args.out, p[0])) and (not args.only or p[1] in args.only)]
    with concurrent.futures.ProcessPoolExecutor(args.jobs, initializer=start, initargs=(args,)) as pool:
        for line in pool.map(make, wanted[:args.parts]):
            print(line, flush=True)


def start(args):
    import torch
    torch.set_num_threads(1)
    global maker
    maker = Maker(args)


def make(wanted):
    return maker.write(*wanted)


if __name__ == "__main__":
    main()
