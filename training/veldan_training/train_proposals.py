"""Trains FaceDetectP."""
import torch

from . import photos, proposals, running


def train(args, network):
    train_photos = photos.load(args.data, "train", subset="fit", doubt_animals=True)
    print(f"{len(train_photos)} photos, {sum(int(p.certain.sum()) for p in train_photos)} faces", flush=True)
    run = running.Run(args, network, steps=args.steps or 14000, rate=args.rate or 3e-3)
    loader = torch.utils.data.DataLoader(proposals.Patches(train_photos, args.seed + run.step), batch_size=None,
                                         num_workers=args.workers)
    for (patches, labels, targets), schedule in run.over(loader):
        score, box = proposals.loss(network((patches.float() - 127.5) / 128), labels, targets)
        schedule.descend(score + 0.5 * box, score=score, box=box)
    run.finish()
