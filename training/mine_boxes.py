#!/usr/bin/env python3
"""Collects what FaceDetectR and FaceDetectO learn from: pieces of photos around the boxes that the cascade so far lets through.

    training/mine_boxes.py --data DATA [--more MORE] [--networks models] [--work training/work] [--seed 1] [--part 0/1]

writes WORK/mined/NAME.stage2.pkl (FaceDetectR) and NAME.stage3.pkl (FaceDetectO); train.py reads all of them, so that several
processes may share the photos (--part 0/3, 1/3, 2/3) and rounds add up. --seed 1 takes photos with heads turned far to the side first,
other seeds any. Everyday photos are mined with the networks in --networks, which should be the ones that are to be bettered.
"""
import argparse
import os
import pickle
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import cv2  # noqa: E402
import numpy as np  # noqa: E402

from veldan_training import cascade, exporting, photos, pieces  # noqa: E402

# Photos of a round: everyday photos; portraits, of which the first number is mined and the second gives its labels.
EVERYDAY = {"people": 900, "sports": 1000, "weapons": 500, "babies": 300, "fashion": 100, "clothes": 300, "kitchen_hands": 150}
PORTRAITS = {"helen": (200, 500), "groups": (250, 600), "portraits": (100, 200), "net80": (700, 1000), "mask_close": (200, 400),
             "misc": (100, 100), "scenes": (80, 80), "pets": (300, 300), "streets": (30, 30), "trash": (40, 40)}


def everyday(folder, rng, turned_first):
    for pack, count in EVERYDAY.items():
        listed = photos.everyday(folder, packs=[pack], subset="fit")
        first = np.array([photos.profile(one.photo.points[one.photo.certain]).any() for one in listed]) & turned_first
        order = np.lexsort((rng.random(len(listed)), ~first & (rng.random(len(listed)) < 0.7)))
        yield from ((listed[i].read, True) for i in order[:count])


def portraits(data, rng):
    for pack, (mined, labels) in PORTRAITS.items():
        loaded = photos.load(data, "train", packs=[pack], subset="fit", doubt_animals=True)
        for k, i in enumerate(rng.permutation(len(loaded))[:labels]):
            yield (lambda photo=loaded[i]: photo), k < mined


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", help="folder with photos/; left out: everyday photos only")
    parser.add_argument("--more", help="folder with everyday photos; left out: portraits only")
    parser.add_argument("--networks", default="models", help="folder of the FaceDetect files (default: %(default)s)")
    parser.add_argument("--work", default="training/work")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--part", default="0/1")
    args = parser.parse_args()
    part, parts = (int(v) for v in args.part.split("/"))
    cv2.setNumThreads(1)
    detector = cascade.Cascade(*(exporting.read(args.networks, f"FaceDetect{stage}") for stage in "PRO"))
    choice, rng = np.random.default_rng(args.seed), np.random.default_rng([args.seed, part])
    jobs = [*(everyday(args.more, choice, args.seed == 1) if args.more else ()), *(portraits(args.data, choice) if args.data else ())]
    jobs = [jobs[i] for i in choice.permutation(len(jobs))][part::parts]
    found = {2: pieces.Collection(), 3: pieces.Collection()}
    for k, (read, boxes_too) in enumerate(jobs):
        pieces.mine(detector, read(), rng, found, boxes_too=boxes_too)
        if k % 500 == 499:
            print(f"{k + 1}/{len(jobs)} photos, {len(found[2].rows)} boxes for R, {len(found[3].rows)} for O", flush=True)
    os.makedirs(os.path.join(args.work, "mined"), exist_ok=True)
    for stage, collection in found.items():
        name = f"round{args.seed}-{part}of{parts}-{'e' if args.more else ''}{'p' if args.data else ''}.stage{stage}.pkl"
        with open(os.path.join(args.work, "mined", name), "wb") as f:
            pickle.dump((collection.pieces, collection.rows, collection.truth), f, protocol=5)


if __name__ == "__main__":
    main()
