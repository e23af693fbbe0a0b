"""Trains FaceDetectR and FaceDetectO."""
import glob
import os
import pickle

import numpy as np
import torch
import torch.nn.functional as F

from . import refinement, running

RECIPE = {  # steps, learning rate, share of crops cut as for the refinement of known faces
    "FaceDetectR": (24000, 2.5e-3, 0.0),
    "FaceDetectO": (40000, 2e-3, 0.2),
}


def loss(outputs, labels, scores, boxes, points, weights, hard_share=0.7):
    """Cross entropy over the hardest crops, smooth L1 on boxes of faces and part faces, L1 on their points."""
    asked = scores != refinement.UNKNOWN
    face, logits, scores = labels != 0, (outputs[0][:, 1] - outputs[0][:, 0])[asked], scores[asked]
    ce = F.binary_cross_entropy_with_logits(logits, scores, reduction="none")
    # What the target itself costs is not the network's fault, and must not make a crop a hard one.
    ce = ce - F.binary_cross_entropy(scores, scores, reduction="none")
    score = ce.topk(max(1, int(hard_share * len(ce)))).values.mean()
    box = F.smooth_l1_loss(outputs[1][face], boxes[face], beta=0.05) if face.any() else outputs[1].sum() * 0
    result = {"score": score, "box": box}
    if len(outputs) > 2:
        w = (weights * face)[:, None]
        error = (outputs[2] - points).abs()
        result["points"] = (torch.where(error < 0.02, error ** 2 / 0.04, error - 0.01) * w).sum() / (10 * w.sum().clamp(min=1))
    return result


def mined(args):
    """Pieces, rows and labels that training/mine_boxes.py has left in WORK, of all rounds."""
    stage = 2 if args.network == "FaceDetectR" else 3
    found, rows, truth = [], [], []
    for path in sorted(glob.glob(os.path.join(args.work, "mined", f"*.stage{stage}.pkl"))):
        with open(path, "rb") as f:
            more, r, t = pickle.load(f)
        first = len(found)
        found += more
        rows += [(row[0] + first, *row[1:]) for row in r]
        truth += [(piece + first, face) for piece, face in t]
    return found, np.array(rows, np.float32), truth


def train(args, network):
    steps, rate, tracked = RECIPE[args.network]
    pieces, rows, truth = mined(args)
    kinds = [int((rows[:, 5] == k).sum()) for k in (refinement.NEGATIVE, refinement.PART, refinement.POSITIVE)]
    faces = refinement.face_packs(args.data, limit=3000)
    correction = refinement.Correction(args.data)
    print(f"boxes: {kinds[0]} background, {kinds[1]} part, {kinds[2]} face; {len(truth)} labels, {len(faces)} aligned faces; "
          f"{correction.pairs} pairs for the point correction", flush=True)
    run = running.Run(args, network, steps=args.steps or steps, rate=args.rate or rate)
    data = refinement.Crops(pieces, truth, faces, rows, network.definition.input_size[0], args.seed + run.step, correction, tracked)
    loader = torch.utils.data.DataLoader(data, batch_size=128, num_workers=args.workers)
    for (images, labels, scores, boxes, points, weights), schedule in run.over(loader):
        network.bfloat16 = not args.single and run.step < 0.95 * run.steps
        parts = loss(network((images.float() - 127.5) / 128), labels, scores, boxes, points, weights)
        schedule.descend(parts["score"] + 8 * parts["box"] + 60 * parts.get("points", 0), **parts)
    run.finish()
