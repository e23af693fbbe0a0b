"""Trains FaceDetectP."""
import numpy as np
import torch

from . import photos, proposals, running


EVERYDAY = {"people": 1400, "sports": 1500, "fashion": 300, "weapons": 700, "babies": 900, "clothes": 300, "kitchen_hands": 200}
LONGER = 420  # sides of everyday photos in memory; a frame of 640 pixels enters the network with at most 171


def everyday(folder, seed):
    """A sample of each pack, photos with faces that are easily lost first."""
    rng, out = np.random.default_rng(seed), []
    for pack, count in EVERYDAY.items():
        listed = photos.everyday(folder, packs=[pack], subset="fit")
        first = [photos.profile(one.photo.points[one.photo.certain]).any() for one in listed]
        order = np.lexsort((rng.random(len(listed)), np.logical_not(first) & (rng.random(len(listed)) < 0.7)))
        out += [listed[i].read(LONGER) for i in order[:count]]
    return out


def train(args, network):
    train_photos = photos.load(args.data, "train", subset="fit", doubt_animals=True)
    if args.more:
        train_photos += everyday(args.more, args.seed)
    print(f"{len(train_photos)} photos, {sum(int(p.certain.sum()) for p in train_photos)} faces", flush=True)
    run = running.Run(args, network, steps=args.steps or 14000, rate=args.rate or 3e-3)
    loader = torch.utils.data.DataLoader(proposals.Patches(train_photos, args.seed + run.step), batch_size=None,
                                         num_workers=args.workers)
    for (patches, labels, targets), schedule in run.over(loader):
        score, box = proposals.loss(network((patches.float() - 127.5) / 128), labels, targets)
        schedule.descend(score + 0.5 * box, score=score, box=box)
    run.finish()
