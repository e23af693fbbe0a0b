"""Trains FaceRecog and FaceMaskRecog: the embedding of the teacher, from the same crop or from its upper half.

Every new crop is shown to the teacher as it is changed; then it stays in a pool and is used about REUSE times with further small
changes that must not move the answer. So most of the time goes into the student, and it still never sees few fixed variants.
"""
import cv2
import numpy as np
import torch

from . import augment, embedding, faces, running
from .teacher import Teacher

PACKS = ("utk", "pins", "celeba", "net", "helen", "nomask")
PHOTO_PACKS = ("portraits", "groups", "mask_close")
MARGIN = 4      # pixels around the pool's crops, so that they can be shifted
STORED = embedding.CROP + 2 * MARGIN
BATCH, REUSE, POOL = 128, 16, 120_000
FIRST = 4096    # crops in the pool before the first step
# How much of the mean is taken out. With masks, taking out all of it would bring too many different people to the
# similarity that is accepted at once.
CENTRED = {"FaceRecog": 1.0, "FaceMaskRecog": 0.5}
BANK = 1024     # faces that a batch's similarities are compared with
AROUND = 8      # pixels around the packs' crops
MIDDLE = (embedding.CROP + 2 * AROUND - 1) / 2


class Aligned:
    """Faces as 128 x 128 pixels, red, green, blue; identity or ""; and where the library would cut the crop.

    The packs are aligned by the points of the teacher of detection. The library's points are like those that people set, and so
    its crops are a twentieth closer and a pixel higher. The recognizer that is learnt from sees the packs' crop, as it was trained
    to; the network sees the library's, as it will be used."""

    def __init__(self):
        self.images, self.names, self.crops = [], [], []

    def add(self, image, name, crop):
        self.images.append(image)
        self.names.append(name)
        self.crops.append(crop)


def _library_crop(points):
    """3 x 3 around the middle: to the library's crop out of the pack's."""
    m = np.eye(3)
    m[:2] = faces.similarity(points - 0.5, faces.TEMPLATE + AROUND)
    m[:2, 2] = m[:2] @ [MIDDLE, MIDDLE, 1] - MIDDLE
    # Of a face in profile the correction knows nothing.
    return m if 0.9 < np.sqrt(np.linalg.det(m)) < 1.25 and np.abs(m[:2, 2]).max() < 6 else np.eye(3)


def load(data, development=False):
    aligned, side = Aligned(), embedding.CROP + 2 * AROUND
    for pack, identity, face in faces.aligned_faces(data, PACKS, development):
        aligned.add(face.image[..., ::-1], f"{pack} {identity}" if identity else "", _library_crop(face.points))
    if not development:
        for face in faces.from_photos(data, packs=PHOTO_PACKS, least=40):
            if face.mask == faces.BARE and face.has_points:
                m = faces.similarity(face.points - 0.5, faces.TEMPLATE + AROUND)
                image = cv2.warpAffine(face.image, m, (side, side), borderMode=cv2.BORDER_REFLECT)[..., ::-1]
                aligned.add(image, "", np.eye(3))
    aligned.images = np.stack(aligned.images)
    return aligned


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
    """(crop for the teacher, crop for the student). The student's is off from the teacher's as the library's points are from the
    truth, the masked engine's two more so than the five; the answer has to be that of the right crop."""

    def __init__(self, aligned, masked, seed):
        self.images, self.crops, self.seed = aligned.images, aligned.crops, seed
        self.off = (1.8, 1.8, 0.025) if masked else (1.0, 1.2, 0.02)

    def _scene(self, rng):
        which = int(rng.integers(len(self.images)))
        image = self.images[which]
        if rng.random() < 0.25:  # a face that does not exist, between two that do
            other = self.images[int(rng.integers(len(self.images)))]
            if rng.random() < 0.5:
                other = other[:, ::-1]
            a = rng.uniform(0.25, 0.5)
            image = cv2.addWeighted(image, 1 - a, other, a, 0)
        return worsen(rng, image), self.crops[which]

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([*self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            image, crop = self._scene(rng)
            strong = 2.0 if rng.random() < 0.15 else 1.0
            right = _jitter(rng, 1.0 * strong, 2 * strong, 0.03 * strong, rng.random() < 0.5)
            off = _jitter(rng, *self.off, False)
            yield _warp(image, right, embedding.CROP), _warp(image, off @ right @ crop, STORED)


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

    def bank(self, count):
        return self.answers[self.rng.integers(self.filled, size=count)]

    def draw(self, count):
        rng, out = self.rng, np.empty((count, embedding.CROP, embedding.CROP, 3), np.uint8)
        at = rng.integers(self.filled, size=count)
        offsets = np.clip(np.round(rng.normal(0, 1.0, (count, 2))), -MARGIN, MARGIN).astype(int) + MARGIN
        for k, (i, (dx, dy)) in enumerate(zip(at, offsets)):
            crop = self.crops[i, dy:dy + embedding.CROP, dx:dx + embedding.CROP]
            out[k] = crop[:, ::-1] if rng.random() < 0.5 else crop
            if rng.random() < 0.15:  # something in front of the face; the answer stays that of the bare face
                w, h = rng.integers(8, 44, 2)
                x, y = rng.integers(0, embedding.CROP - w), rng.integers(0, embedding.CROP - h)
                out[k, y:y + h, x:x + w] = rng.integers(0, 256, 3) if rng.random() < 0.5 else 127
        return out, self.answers[at]


def to_input(crops):
    return (torch.from_numpy(np.ascontiguousarray(crops)).permute(0, 3, 1, 2).float() - 127.5) / 128


def answer(teacher, crops):
    """Of a crop and its mirror image together: nearer to the person than either, and the same for both, so there is less to learn."""
    return torch.nn.functional.normalize(teacher.embed(crops) + teacher.embed(crops[:, :, ::-1]))


def loss_of(features, wanted, bank):
    """(what is minimised, mean cosine distance). Half of it counts only the error that changes similarities to other faces."""
    unit = torch.nn.functional.normalize(features)
    distance = (1 - (unit * wanted).sum(1)).mean()
    similarities = ((unit - wanted) @ bank.T).square().mean() * embedding.FEATURES
    return 0.5 * distance + 0.25 * similarities, distance.detach()


def train(args, network):
    masked = args.network == "FaceMaskRecog"
    aligned = load(args.data)
    print(f"{len(aligned.images)} aligned faces", flush=True)
    teacher = Teacher(args.data, args.single)
    run = running.Run(args, network, steps=args.steps or 40_000, rate=args.rate or 2e-3)
    begun, batch = run.step, BATCH // run.processes
    generator = Crops(aligned, masked, [args.seed + run.step, run.process])
    loader = torch.utils.data.DataLoader(generator, batch_size=max(1, batch // REUSE), num_workers=args.workers)
    pool = Pool(POOL // run.processes, np.random.default_rng([args.seed, run.step, 1, run.process]))
    crops = iter(loader)
    while run.step < run.steps and pool.filled < FIRST // run.processes:
        right, off = next(crops)
        pool.add(off.numpy(), answer(teacher, right.numpy()).numpy())
    for (right, off), schedule in run.over(crops):
        pool.add(off.numpy(), answer(teacher, right.numpy()).numpy())
        network.bfloat16 = not args.single and run.step < 0.95 * run.steps
        drawn, wanted = pool.draw(batch)
        loss, distance = loss_of(network(to_input(drawn)), torch.from_numpy(wanted), torch.from_numpy(pool.bank(BANK)))
        schedule.descend(loss, distance=distance)
    run.finish()
    if run.process > 0:
        raise SystemExit  # the first process does the rest alone
    if run.step > begun:
        centre(aligned, network)
        run.save()


@torch.no_grad()
def centre(aligned, network):
    """Takes out of the answers what all faces have in common, or part of it: it tells nobody apart."""
    at = np.random.default_rng(7).permutation(len(aligned.images))[:3000]
    crops = np.stack([_warp(aligned.images[k], aligned.crops[k], embedding.CROP) for k in at])
    network.eval()
    features = torch.cat([network(x) for x in to_input(crops).split(64)])
    lengths = features.norm(dim=1, keepdim=True)
    network.fc.bias -= CENTRED[network.definition.name] * lengths.mean() * (features / lengths).mean(0)


def equal_error(scores, same):
    """Accuracy at the best threshold."""
    order = np.argsort(-scores)
    hits, misses = np.cumsum(same[order]), np.cumsum(~same[order])
    return float(((hits + (~same).sum() - misses) / len(same)).max())


def report(args, network):
    """On the development faces: how near the teacher, and how well it tells the named people apart."""
    aligned = load(args.data, development=True)
    images, names = aligned.images, aligned.names
    wanted = answer(Teacher(args.data, args.single), images[:, AROUND:-AROUND, AROUND:-AROUND])
    crops = np.stack([_warp(image, crop, embedding.CROP) for image, crop in zip(images, aligned.crops)])
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
