"""Trains FaceRecog and FaceMaskRecog: the embedding of the teacher, from the same crop or from its upper half.

Every new crop is shown to the teacher as it is changed; then it stays in a pool and is used about REUSE times with further small
changes that must not move the answer. So most of the time goes into the student, and it still never sees few fixed variants.
"""
import csv
import zipfile

import cv2
import numpy as np
import torch

from . import augment, embedding, faces, photos, running
from .teacher import Teacher

PACKS = ("utk", "pins", "celeba", "net", "helen", "nomask")
PHOTO_PACKS = ("portraits", "groups", "mask_close")
MARGIN = 4      # pixels around the pool's crops, so that they can be shifted
STORED = embedding.CROP + 2 * MARGIN
BATCH, REUSE, POOL = 128, 4, 120_000
AROUND = 8      # pixels around the packs' crops


def load(data, development=False):
    """(faces as 128 x 128 pixels, identities or ""), red, green, blue."""
    images, names = [], []
    for pack in PACKS:
        with zipfile.ZipFile(f"{data}/faces/{pack}.zip") as z, open(f"{data}/faces/{pack}.csv", newline="") as f:
            members = {n.split("/")[-1]: n for n in z.namelist()}
            for r in csv.reader(f):
                if not r or r[0] not in members or photos.is_development(r[0]) != development:
                    continue
                images.append(cv2.imdecode(np.frombuffer(z.read(members[r[0]]), np.uint8), cv2.IMREAD_COLOR)[..., ::-1])
                names.append(f"{pack} {r[1]}" if r[1] else "")
    if not development:
        side = embedding.CROP + 2 * AROUND
        for face in faces.from_photos(data, packs=PHOTO_PACKS, least=40):
            if face.mask == faces.BARE and face.has_points:
                m = faces.similarity(face.points - 0.5, faces.TEMPLATE + AROUND)
                images.append(cv2.warpAffine(face.image, m, (side, side), borderMode=cv2.BORDER_REFLECT)[..., ::-1])
                names.append("")
    return np.stack(images), names


def _jitter(rng, shift, turn, grow, mirror):
    """Similarity around the crop's centre; pixels, degrees, natural logarithm of the scale."""
    scale, angle = np.exp(np.clip(rng.normal(0, grow), -0.2, 0.2)), np.deg2rad(np.clip(rng.normal(0, turn), -20, 20))
    rotation = scale * np.array([[np.cos(angle), -np.sin(angle)], [np.sin(angle), np.cos(angle)]])
    m = np.eye(3)
    m[:2, :2] = rotation @ np.diag([-1.0 if mirror else 1.0, 1.0])
    m[:2, 2] = np.clip(rng.normal(0, shift, 2), -8, 8)
    return m


def _around(centre_in, m, centre_out):
    before, after = np.eye(3), np.eye(3)
    before[:2, 2], after[:2, 2] = -centre_in, centre_out
    return (after @ m @ before)[:2]


def _warp(image, m, side):
    """m acts around the centres of both pictures."""
    full = _around((image.shape[0] - 1) / 2, m, (side - 1) / 2)
    return cv2.warpAffine(image, full, (side, side), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REFLECT)


def worsen(rng, image):
    image = augment.resolution(rng, augment.colour(rng, image))
    if rng.random() < 0.12:  # a face far away
        small = int(rng.integers(18, 60))
        how = cv2.INTER_AREA if rng.random() < 0.5 else cv2.INTER_LINEAR
        image = cv2.resize(cv2.resize(image, (small, small), interpolation=how), image.shape[1::-1], interpolation=cv2.INTER_LINEAR)
    if rng.random() < 0.08:
        image = np.repeat(cv2.cvtColor(image, cv2.COLOR_RGB2GRAY)[..., None], 3, 2)
    return image


class Crops(torch.utils.data.IterableDataset):
    """(crop for the teacher, crop for the student). The masked engine's two points are less exact than the five, so there
    the student's crop is off from the teacher's; the answer has to be that of the right crop."""

    def __init__(self, images, masked, seed):
        self.images, self.seed = images, seed
        self.off = (1.8, 1.8, 0.025) if masked else (0.7, 0.8, 0.01)

    def _scene(self, rng):
        image = self.images[int(rng.integers(len(self.images)))]
        if rng.random() < 0.25:  # a face that does not exist, between two that do
            other = self.images[int(rng.integers(len(self.images)))]
            if rng.random() < 0.5:
                other = other[:, ::-1]
            a = rng.uniform(0.25, 0.5)
            image = cv2.addWeighted(image, 1 - a, other, a, 0)
        return worsen(rng, image)

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            image = self._scene(rng)
            strong = 2.0 if rng.random() < 0.15 else 1.0
            right = _jitter(rng, 1.5 * strong, 3 * strong, 0.04 * strong, rng.random() < 0.5)
            off = _jitter(rng, *self.off, False)
            yield _warp(image, right, embedding.CROP), _warp(image, off @ right, STORED)


class Pool:
    """The last crops with their answers, in a ring."""

    def __init__(self, size, rng):
        self.crops, self.answers = np.zeros((size, STORED, STORED, 3), np.uint8), np.zeros((size, embedding.FEATURES), np.float32)
        self.filled = self.next = 0
        self.rng = rng

    def add(self, crops, answers):
        at = (self.next + np.arange(len(crops))) % len(self.crops)
        self.crops[at], self.answers[at] = crops, answers
        self.next = int(at[-1] + 1) % len(self.crops)
        self.filled = min(len(self.crops), self.filled + len(crops))

    def draw(self, count):
        rng, out = self.rng, np.empty((count, embedding.CROP, embedding.CROP, 3), np.uint8)
        at = rng.integers(self.filled, size=count)
        offsets = np.clip(np.round(rng.normal(0, 1.0, (count, 2))), -MARGIN, MARGIN).astype(int) + MARGIN
        for k, (i, (dx, dy)) in enumerate(zip(at, offsets)):
            out[k] = self.crops[i, dy:dy + embedding.CROP, dx:dx + embedding.CROP]
            if rng.random() < 0.25:  # something in front of the face; the answer stays that of the bare face
                w, h = rng.integers(8, 44, 2)
                x, y = rng.integers(0, embedding.CROP - w), rng.integers(0, embedding.CROP - h)
                out[k, y:y + h, x:x + w] = rng.integers(0, 256, 3) if rng.random() < 0.5 else 127
        return out, self.answers[at]


def to_input(crops):
    return (torch.from_numpy(np.ascontiguousarray(crops)).permute(0, 3, 1, 2).float() - 127.5) / 128


def train(args, network):
    masked = args.network == "FaceMaskRecog"
    images, _ = load(args.data)
    print(f"{len(images)} aligned faces", flush=True)
    teacher = Teacher(args.data, args.single)
    run = running.Run(args, network, steps=args.steps or 40_000, rate=args.rate or 2e-3)
    loader = torch.utils.data.DataLoader(Crops(images, masked, args.seed + run.step), batch_size=BATCH // REUSE, num_workers=args.workers)
    pool = Pool(POOL, np.random.default_rng([args.seed, run.step, 1]))
    for (right, off), schedule in run.over(loader):
        answers = teacher.embed(right.numpy()).numpy()
        pool.add(off.numpy(), answers)
        network.bfloat16 = not args.single and run.step < 0.95 * run.steps
        crops, wanted = pool.draw(BATCH)
        cosine = torch.nn.functional.cosine_similarity(network(to_input(crops)), torch.from_numpy(wanted))
        schedule.descend((1 - cosine).mean(), distance=(1 - cosine).detach().mean())
    run.finish()


def equal_error(scores, same):
    """Accuracy at the best threshold."""
    order = np.argsort(-scores)
    hits, misses = np.cumsum(same[order]), np.cumsum(~same[order])
    return float(((hits + (~same).sum() - misses) / len(same)).max())


def report(args, network):
    """On the development faces: how near the teacher, and how well it tells the named people apart."""
    images, names = load(args.data, development=True)
    crops = images[:, AROUND:-AROUND, AROUND:-AROUND]
    wanted = Teacher(args.data, args.single).embed(crops)
    with torch.no_grad():
        got = torch.cat([torch.nn.functional.normalize(network(x)) for x in to_input(crops).split(64)])
    print(f"  {len(images)} faces, mean cosine with the teacher {float((got * wanted).sum(1).mean()):.4f}", flush=True)
    named = [k for k, name in enumerate(names) if name]
    rows, columns = np.triu_indices(len(named), 1)
    same = np.array([names[named[a]] == names[named[b]] for a, b in zip(rows, columns)])
    keep = same | (np.random.default_rng(3).random(len(same)) < same.sum() / (~same).sum())
    for who, e in (("teacher", wanted[named]), ("network", got[named])):
        scores = (e @ e.T).numpy()[rows, columns]
        line = f"  {who}: accuracy {equal_error(scores[keep], same[keep]):.4f}"
        for rate in (1e-2, 1e-3):
            line += f", {float((scores[same] > np.quantile(scores[~same], 1 - rate)).mean()):.3f} of the same at {rate:g} of the different"
        print(line, f"({same.sum()} same pairs)", flush=True)
