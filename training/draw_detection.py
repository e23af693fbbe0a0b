#!/usr/bin/env python3
"""Draws recall against false positives over the score that FaceDetectO asks for, on both sets of validation photos.

    training/draw_detection.py --data DATA --more MORE [--networks models] --out docs/images/detection-curves.png

The library's threshold is fixed and training/train.py --score moves the network's scores to it, so the curve says what another choice would
have brought. The library does not give the scores away: this is its detector in Python (cascade.py), which counts as veldan_eval detect does,
but leaves points and boxes by people aside.
"""
import argparse
import csv
import os
import sys

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from veldan_training import calibration, cascade, exporting, photos  # noqa: E402

EVAL = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "bench", "eval")
SCORES = np.concatenate([np.linspace(0.02, 0.98, 97), [cascade.OUTPUT]])
LEFT, TOP, WIDTH, HEIGHT = 80, 50, 640, 440
MOST_FALSE, LEAST_RECALL = 0.2, 0.8
INK = (60, 60, 60)


def review(name):
    """{(pack, file, box): verdict}"""
    with open(os.path.join(EVAL, name), newline="") as f:
        return {(r["pack"], r["file"], tuple(float(r[k]) for k in "xywh")): r["verdict"] for r in csv.DictReader(f)}


def portraits(data):
    """(pack, file, picture, boxes, certain, boxes by people)"""
    folder = os.path.join(data, "photos")
    for pack in sorted(n[:-len(".images.csv")] for n in os.listdir(folder) if n.endswith(".images.csv")):
        labels, people = {}, {}
        for name, box, _, score in photos.teacher_faces(folder, pack):
            labels.setdefault(name, []).append((box, score >= photos.FACE_SCORE))
        for row in photos.rows(os.path.join(folder, f"{pack}.masks.csv")):
            people.setdefault(row[0], []).append([float(v) for v in row[1:5]])
        for photo in photos.load(data, "val", packs=[pack]):
            own = labels.get(photo.name, [])
            yield pack, photo.name, photo.image, [b for b, _ in own], [c for _, c in own], people.get(photo.name, [])


def everyday(folder):
    for one in photos.everyday(folder, "val", photos.EVERYDAY):
        photo = one.read()
        yield photo.pack, photo.name, photo.image, photo.boxes.astype(float), photo.certain, []


def judge(found, wanted, neutral):
    """(whether each wanted box is found, whether each found box is false)"""
    overlaps = np.array([photos.overlap(b, wanted) for b in found]).reshape(len(found), len(wanted))
    taken, hit, false = np.zeros(len(wanted), bool), np.zeros(len(found), bool), np.zeros(len(found), bool)
    for f, w in sorted(np.argwhere(overlaps >= 0.5).tolist(), key=lambda pair: -overlaps[tuple(pair)]):
        if not hit[f] and not taken[w]:
            hit[f] = taken[w] = True
    neutral = [n for n in neutral if not (photos.overlap(n, wanted[taken]) >= 0.5).any()] if taken.any() else neutral
    for f in np.flatnonzero(~hit):
        false[f] = not len(neutral) or photos.overlap(found[f], neutral).max() < 0.3
    return taken, false


def curve(detector, listed, faults):
    """(recall, false positives a photo) at each of SCORES."""
    right, wrong, faces, count = np.zeros(len(SCORES)), np.zeros(len(SCORES)), 0, 0
    for pack, name, image, boxes, certain, people in listed:
        frame, scale = cascade.fit(image, calibration.FIT)
        limit = np.array(frame.shape[1::-1])

        def clipped(b):
            b = np.asarray(b, float).reshape(-1, 4) * scale
            near, far = np.clip(b[:, :2], 0, limit), np.clip(b[:, :2] + b[:, 2:], 0, limit)
            return np.concatenate([near, far - near], 1)

        verdicts = [faults.get((pack, name, tuple(round(float(v), 1) for v in b))) for b in boxes]
        boxes = np.asarray(boxes, float).reshape(-1, 4)
        wanted = np.array([c and v is None for c, v in zip(certain, verdicts)], bool)
        large = np.sqrt(boxes[:, 2] * boxes[:, 3]) * scale >= calibration.MIN_FACE
        rest = ~(wanted & large) & np.array([v != "no_face" for v in verdicts], bool)
        neutral = np.concatenate([clipped(boxes[rest]), clipped(people)])
        wanted = clipped(boxes[wanted & large])
        b, scores, _ = detector.detect(frame, threshold=SCORES.min())
        b[:, :2], b[:, 2:] = np.maximum(b[:, :2], 0), np.minimum(b[:, 2:], limit - 1)
        b = np.round(b)
        sizes = np.concatenate([b[:, :2], b[:, 2:] - b[:, :2]], 1)
        faces, count = faces + len(wanted), count + 1
        for i, score in enumerate(SCORES):
            taken, false = judge(sizes[scores >= score], wanted, neutral)
            right[i] += taken.sum()
            wrong[i] += false.sum()
    return right / max(faces, 1), wrong / max(count, 1)


def place(false, recall):
    return (LEFT + round(WIDTH * min(false, MOST_FALSE) / MOST_FALSE),
            TOP + round(HEIGHT * (1 - (max(recall, LEAST_RECALL) - LEAST_RECALL) / (1 - LEAST_RECALL))))


def write(picture, line, at, colour=INK, size=0.45):
    cv2.putText(picture, line, at, cv2.FONT_HERSHEY_SIMPLEX, size, colour, 1, cv2.LINE_AA)


def draw(curves):
    """curves: (name, colour, recall, false positives, aim as false positives and recall)."""
    picture = np.full((TOP + HEIGHT + 110, LEFT + WIDTH + 40, 3), 255, np.uint8)
    for value in np.arange(LEAST_RECALL, 1.001, 0.05):
        cv2.line(picture, place(0, value), place(MOST_FALSE, value), (225, 225, 225), 1)
        write(picture, f"{value:.2f}", (LEFT - 42, place(0, value)[1] + 5))
    for value in np.arange(0, MOST_FALSE + 0.001, 0.05):
        cv2.line(picture, place(value, LEAST_RECALL), place(value, 1), (225, 225, 225), 1)
        write(picture, f"{value:.2f}", (place(value, 0)[0] - 14, TOP + HEIGHT + 20))
    cv2.rectangle(picture, place(0, 1), place(MOST_FALSE, LEAST_RECALL), INK, 1)
    write(picture, "Recall against false positives, over the score of the last network", (LEFT, 24), (0, 0, 0), 0.6)
    write(picture, "false positives a photo", (LEFT + 230, TOP + HEIGHT + 44), size=0.5)
    for k, (name, colour, recall, false, aim) in enumerate(curves):
        order = [i for i in np.argsort(SCORES) if false[i] <= MOST_FALSE and recall[i] >= LEAST_RECALL]
        cv2.polylines(picture, [np.array([place(false[i], recall[i]) for i in order], np.int32)], False, colour, 2, cv2.LINE_AA)
        cv2.circle(picture, place(false[-1], recall[-1]), 6, colour, cv2.FILLED, cv2.LINE_AA)
        cv2.drawMarker(picture, place(*aim), colour, cv2.MARKER_TILTED_CROSS, 14, 2, cv2.LINE_AA)
        y = TOP + HEIGHT + 72 + 22 * k
        cv2.line(picture, (LEFT, y - 5), (LEFT + 28, y - 5), colour, 2, cv2.LINE_AA)
        write(picture, f"{name}: shipped (dot) {recall[-1]:.3f} at {false[-1]:.3f}, aim (cross) {aim[1]:.3f} at {aim[0]:.3f}", (LEFT + 38, y))
    return picture


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", required=True)
    parser.add_argument("--more", required=True)
    parser.add_argument("--networks", default="models", help="folder of the FaceDetect files (default: %(default)s)")
    parser.add_argument("--out", required=True, help="picture to write")
    args = parser.parse_args()
    cv2.setNumThreads(1)
    detector = cascade.Cascade(*(exporting.read(args.networks, f"FaceDetect{stage}") for stage in "PRO"))
    curves = []
    for name, colour, listed, faults, aim in (
            ("everyday photos", (178, 114, 0), everyday(args.more), review("reviewed_everyday.csv"), (0.1, 0.93)),
            ("portraits, groups", (0, 94, 213), portraits(args.data), {}, (0.045, 0.946))):
        recall, false = curve(detector, listed, faults)
        print(f"{name}: recall {recall[-1]:.4f} at {false[-1]:.4f} false positives a photo")
        curves.append((name, colour, recall, false, aim))
    if not cv2.imwrite(args.out, draw(curves)):
        raise SystemExit(f"{args.out}: cannot be written")


if __name__ == "__main__":
    main()
