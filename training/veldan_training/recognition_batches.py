"""What the recognizers are shown, prepared by processes on the CPU.

Half of the new crops are shown to the teacher as they are changed. The other half went through a poor camera and keep the answer
that the teacher gave of the undamaged face. Each then stays in a pool and is used about REUSE times with further small changes that
must not move the answer. So most of the time goes into the student, and it still never sees few fixed variants.
"""
import cv2
import numpy as np
import torch

from . import augment, embedding, faces

MARGIN = 4      # pixels around the pool's crops, so that they can be shifted
STORED = embedding.CROP + 2 * MARGIN
REUSE, POOL = 12, 120_000
FIRST = 4096    # crops in the pool before the first step


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


def warp(image, m, side):
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


# How the student's crop is off from the teacher's (pixels, degrees, logarithm of the scale): as the library's points are from the truth,
# the masked engine's two more so than the five.
OFF = {"FaceRecog": (1.0, 1.2, 0.02), "FaceMaskRecog": (1.8, 1.8, 0.025)}


class Crops(torch.utils.data.IterableDataset):
    """(crop for the teacher, crop for the student, which face, whether the stored answer is wanted). The answer has to be that of
    the right crop."""

    def __init__(self, aligned, network, seed):
        self.images, self.crops, self.seed = aligned.images, aligned.crops, seed
        self.off, self.masked = OFF[network], network == "FaceMaskRecog"

    def _scene(self, rng, which, known):
        image = self.images[which]
        if known:
            return augment.camera(rng, image) if rng.random() < 0.7 else worsen(rng, image)
        if rng.random() < 0.5:  # a face that does not exist, between two that do
            other = self.images[int(rng.integers(len(self.images)))]
            if rng.random() < 0.5:
                other = other[:, ::-1]
            a = rng.uniform(0.25, 0.5)
            image = cv2.addWeighted(image, 1 - a, other, a, 0)
        return worsen(rng, image)

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([*self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            which, known = int(rng.integers(len(self.images))), rng.random() < 0.5
            image = self._scene(rng, which, known)
            strong = 2.0 if rng.random() < 0.15 else 1.0
            right = _jitter(rng, 1.0 * strong, 2 * strong, 0.03 * strong, rng.random() < 0.5)
            off = warp(image, _jitter(rng, *self.off, False) @ right @ self.crops[which], STORED)
            if self.masked and rng.random() < 0.5:
                off = augment.paint_mask(rng, off, faces.TEMPLATE + MARGIN)
            yield warp(image, right, embedding.CROP), off, which, known


class Pool:
    """The last crops with their answers and faces, in a ring."""

    def __init__(self, size, rng):
        self.crops, self.answers = np.zeros((size, STORED, STORED, 3), np.uint8), np.zeros((size, embedding.FEATURES), np.float32)
        self.faces = np.zeros(size, np.int64)
        self.filled = self.next = 0
        self.rng = rng

    def add(self, crops, answers, which):
        at = (self.next + np.arange(len(crops))) % len(self.crops)
        self.crops[at], self.answers[at], self.faces[at] = crops, answers, which
        self.next = int(at[-1] + 1) % len(self.crops)
        self.filled = min(len(self.crops), self.filled + len(crops))

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
        return out, self.answers[at], self.faces[at]


def answer(teacher, crops):
    """Of a crop and its mirror image together: nearer to the person than either, and the same for both, so there is less to learn."""
    return torch.nn.functional.normalize(teacher.embed(crops) + teacher.embed(crops[:, :, ::-1]))


def to_input(crops):
    return (torch.from_numpy(np.ascontiguousarray(crops)).permute(0, 3, 1, 2).float() - 127.5) / 128


def batches(aligned, teacher, network, size, seed, workers, processes, limit=POOL):
    """Without end: (input of the network, wanted answers, which faces)."""
    generator = Crops(aligned, network, seed)
    loader = torch.utils.data.DataLoader(generator, batch_size=max(1, size // REUSE), num_workers=workers)
    pool = Pool(limit // processes, np.random.default_rng([*seed, 1]))
    for right, off, which, known in loader:
        answers = aligned.answers[which.numpy()]
        if not known.all():
            answers[~known.numpy()] = answer(teacher, right[~known].numpy()).numpy()
        pool.add(off.numpy(), answers, which.numpy())
        if pool.filled >= min(FIRST, limit) // processes:
            drawn, wanted, which = pool.draw(size)
            yield to_input(drawn), torch.from_numpy(wanted), torch.from_numpy(which)
