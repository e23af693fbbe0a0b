"""Trains FaceDetectR and FaceDetectO."""
import os

import numpy as np
import torch
import torch.nn.functional as F

from . import cascade, networks, photos, refinement, running

RECIPE = {  # steps, learning rate, mining threshold of the score in front, how often the photos are mined
    "FaceDetectR": (24000, 2.5e-3, 0.4, 1),
    "FaceDetectO": (40000, 2e-3, 0.35, 3),  # few boxes come that far
}


def loss(outputs, labels, scores, boxes, points, weights, hard_share=0.7):
    """Cross entropy over the hardest crops, smooth L1 on boxes of faces and part faces, L1 on their points."""
    ce = F.binary_cross_entropy_with_logits(outputs[0][:, 1] - outputs[0][:, 0], scores, reduction="none")
    # What the target itself costs is not the network's fault, and must not make a crop a hard one.
    ce = ce - F.binary_cross_entropy(scores, scores, reduction="none")
    score = ce.topk(max(1, int(hard_share * len(ce)))).values.mean()
    face = (labels != 0)
    box = F.smooth_l1_loss(outputs[1][face], boxes[face], beta=0.05) if face.any() else outputs[1].sum() * 0
    result = {"score": score, "box": box}
    if len(outputs) > 2:
        w = (weights * face)[:, None]
        error = (outputs[2] - points).abs()
        result["points"] = (torch.where(error < 0.02, error ** 2 / 0.04, error - 0.01) * w).sum() / (10 * w.sum().clamp(min=1))
    return result


def exported(args, name):
    """The file of an earlier stage as it was last exported to WORK; None when it is not there yet."""
    path = os.path.join(args.work, networks.file_name(name))
    if not os.path.exists(path):
        return None
    with open(path, "rb") as f:
        return f.read()


def mined(args, train_photos, stage, threshold, passes):
    """Boxes as the stage in front leaves them. The output network may start before FaceDetectR exists: on proposals."""
    path = os.path.join(args.work, f"{args.network}.boxes.npy")
    if os.path.exists(path) and not args.fresh:
        return np.load(path)
    refine = exported(args, "FaceDetectR") if stage == 3 else None
    detector = cascade.Cascade(exported(args, "FaceDetectP"), refine)
    rows = np.concatenate([refinement.mine(detector, train_photos, stage if refine else 2,
                                           np.random.default_rng(args.seed + k), threshold) for k in range(passes)])
    np.save(path, rows)
    return rows


def train(args, network):
    stage = 2 if args.network == "FaceDetectR" else 3
    steps, rate, threshold, passes = RECIPE[args.network]
    train_photos = photos.load(args.data, "train", subset="fit", doubt_animals=True)
    rows = mined(args, train_photos, stage, threshold, passes)
    # Boxes may have been mined when a label that is doubted now still counted as a face.
    rows = rows[[row[6] < 0 or train_photos[int(row[0])].certain[int(row[6])] for row in rows]]
    kinds = [int((rows[:, 5] == k).sum()) for k in (refinement.NEGATIVE, refinement.PART, refinement.POSITIVE)]
    faces = refinement.face_packs(args.data)
    correction = refinement.Correction(args.data)
    print(f"boxes: {kinds[0]} background, {kinds[1]} part, {kinds[2]} face; {len(faces)} aligned faces; "
          f"{correction.pairs} pairs for the point correction", flush=True)
    run = running.Run(args, network, steps=args.steps or steps, rate=args.rate or rate)
    data = refinement.Crops(train_photos, faces, rows, network.definition.input_size[0], args.seed + run.step, correction)
    loader = torch.utils.data.DataLoader(data, batch_size=128, num_workers=args.workers)
    for (images, labels, scores, boxes, points, weights), schedule in run.over(loader):
        network.bfloat16 = not args.single and run.step < 0.95 * run.steps
        parts = loss(network((images.float() - 127.5) / 128), labels, scores, boxes, points, weights)
        schedule.descend(parts["score"] + 8 * parts["box"] + 60 * parts.get("points", 0), **parts)
    run.finish()
