#!/usr/bin/env python3
"""Draws the labels of photos onto numbered sheets, for people who check whether each shows a face.

    training/label_sheets.py --data DATA | --more MORE --out FOLDER [--split val] [--seed 1]

sheet-00.png and so on show every label that counts as a face, in random order and with twice its size around it, and nothing of
what the library finds there: who looks at them judges found and missed faces alike. labels.csv names them: number,file,pack,x,y,w,h.
The lines of labels at fault go, with a verdict in place of the number, into the table that veldan_eval reads with --review:
file,pack,x,y,w,h,verdict.
"""
import argparse
import csv
import os
import sys

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from veldan_training import calibration, photos  # noqa: E402

CELL, TEXT, COLUMNS, ROWS = 150, 16, 9, 6


def drawn(image, box):
    x, y, w, h = box
    scale = CELL / (2.2 * max(w, h))
    m = np.array([[scale, 0, CELL / 2 - scale * (x + w / 2)], [0, scale, CELL / 2 - scale * (y + h / 2)]])
    cell = cv2.warpAffine(image, m, (CELL, CELL), flags=cv2.INTER_AREA if scale < 1 else cv2.INTER_CUBIC, borderValue=(120,) * 3)
    corners = (m @ [[x, x + w], [y, y + h], [1, 1]]).round().astype(int)
    cv2.rectangle(cell, corners[:, 0].tolist(), corners[:, 1].tolist(), (0, 255, 255), 1)
    return cell


def faces_of(data, split):
    """(pack, file, box, picture) of every label that the evaluator counts: the teacher is sure, and the face is large enough in the
    fitted photo. What the trainer adds and corrects is left out."""
    images = {(photo.pack, photo.name): photo.image for photo in photos.load(data, split)}
    for pack in sorted({pack for pack, _ in images}):
        for name, box, _, score in photos.teacher_faces(os.path.join(data, "photos"), pack):
            image = images.get((pack, name))
            if image is None or score < photos.FACE_SCORE:
                continue
            if np.sqrt(box[2] * box[3]) * calibration.FIT / max(image.shape[:2]) >= calibration.MIN_FACE:
                yield pack, name, box, image


def everyday_faces_of(folder, split):
    """The same of everyday photos."""
    for one in photos.everyday(folder, split, photos.EVERYDAY):
        photo = one.photo
        if not photo.certain.any():
            continue
        photo = one.read()
        scale = calibration.FIT / max(photo.image.shape[:2])
        for box in photo.boxes[photo.certain]:
            if np.sqrt(box[2] * box[3]) * scale >= calibration.MIN_FACE:
                yield photo.pack, photo.name, box.astype(float), photo.image


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", help="folder with photos/")
    parser.add_argument("--more", help="folder with everyday photos; or")
    parser.add_argument("--out", required=True)
    parser.add_argument("--split", default="val", choices=("train", "val"))
    parser.add_argument("--seed", type=int, default=1)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    labels = list(everyday_faces_of(args.more, args.split) if args.more else faces_of(args.data, args.split))
    labels = [labels[k] for k in np.random.default_rng(args.seed).permutation(len(labels))]
    with open(os.path.join(args.out, "labels.csv"), "w", newline="") as f:
        table = csv.writer(f)
        table.writerow(["number", "file", "pack", "x", "y", "w", "h"])
        for number, (pack, name, box, _) in enumerate(labels):
            table.writerow([number, name, pack, *(f"{v:.6g}" for v in box)])
    each = COLUMNS * ROWS
    for first in range(0, len(labels), each):
        sheet = np.full((ROWS * (CELL + TEXT), COLUMNS * (CELL + 2), 3), 255, np.uint8)
        for j, (_, _, box, image) in enumerate(labels[first:first + each]):
            y, x = j // COLUMNS * (CELL + TEXT), j % COLUMNS * (CELL + 2)
            sheet[y:y + CELL, x:x + CELL] = drawn(image, box)
            cv2.putText(sheet, str(first + j), (x + 2, y + CELL + 13), cv2.FONT_HERSHEY_SIMPLEX, 0.5, (0, 0, 0), 1, cv2.LINE_AA)
        cv2.imwrite(os.path.join(args.out, f"sheet-{first // each:02d}.png"), sheet)
    print(f"{len(labels)} labels on {-(-len(labels) // each)} sheets in {args.out}")


if __name__ == "__main__":
    main()
