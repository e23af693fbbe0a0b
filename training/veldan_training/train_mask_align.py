"""Trains FaceMaskAlign: where the corners of the aligned crop lie, for bare and masked faces alike."""
import cv2
import numpy as np
import torch

from . import augment, coverings, faces, running

SIZE = 48
CUTS = 3  # boxes set around the same face: painting it costs more than cutting it


def target_of(points, square):
    """The corners as the engine decodes them: square left + answer * (side + 1)."""
    x, y, side = square
    return ((faces.corners(points) - [x, y]) / (side + 1)).astype(np.float32).ravel()


def scene(rng, face, scenery, masked=None, turn=None, plain=False):
    """A patch with what is worn on it. plain: as photographed, for measuring."""
    side = np.exp(rng.uniform(np.log(40), np.log(150)))
    turn = (14 if rng.random() < 0.5 else 3) if turn is None else turn
    p = faces.patch(rng, face, side, turn)
    if masked is None:
        masked = face.mask == faces.BARE and rng.random() < 0.5
    if masked:
        p.image = coverings.mask(rng, p.image, p.points, scenery, rng.random() < 0.1)
    elif not plain and face.mask == faces.BARE and rng.random() < 0.12:
        p.image = coverings.not_a_mask(rng, p.image, p.points, scenery)
    if not plain:
        if rng.random() < 0.08:
            p.image = coverings.glasses(rng, p.image, p.points, rng.random() < 0.6)
        if rng.random() < 0.06:
            p.image = coverings.headwear(rng, p.image, p.points, scenery)
    return p


def cut(rng, p, plain=False):
    """Crop and target."""
    crop, square = faces.square_crop(p.image, *faces.detector_box(rng, p.box, 1.0 if plain else 1.2), SIZE)
    if not plain:
        crop = augment.resolution(rng, augment.colour(rng, crop))
        if rng.random() < 0.05:
            crop = augment.occlude(rng, crop, (8, 8, 32, 32))
    return crop, target_of(p.points, square)


class Crops(torch.utils.data.IterableDataset):
    def __init__(self, photo_faces, pack_faces, seed):
        self.photo, self.packs, self.seed = photo_faces, pack_faces, seed
        weight = np.array([{"helen": 6.0, "net80": 1.0}.get(f.pack, 1.0) * (2.0 if f.mask > 0 else 1.0) for f in photo_faces])
        self.weight = np.cumsum(weight) / weight.sum()

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            if rng.random() < 0.85:
                face = self.photo[min(int(np.searchsorted(self.weight, rng.random())), len(self.photo) - 1)]
            else:
                face = self.packs[int(rng.integers(len(self.packs)))]
            p = scene(rng, face, self.photo[int(rng.integers(len(self.photo)))].image)
            for _ in range(CUTS):
                crop, target = cut(rng, p)
                yield np.ascontiguousarray(crop.transpose(2, 0, 1)), target, np.float32(1.0 if face.human else 0.25)


def usable(found):
    return [f for f in found if f.has_points]


def train(args, network):
    people = usable(faces.from_photos(args.data))
    packs = faces.from_face_packs(args.data)
    print(f"{len(people)} faces in photos, {sum(f.mask > 0 for f in people)} masked, {sum(f.human for f in people)} with points by people; "
          f"{len(packs)} aligned faces", flush=True)
    run = running.Run(args, network, steps=args.steps or 9000, rate=args.rate or 1.5e-3)
    loader = torch.utils.data.DataLoader(Crops(people, packs, args.seed + run.step), batch_size=128, num_workers=args.workers)
    for (crops, targets, weights), schedule in run.over(loader):
        network.bfloat16 = not args.single and run.step < 0.85 * run.steps
        error = (network((crops.float() - 127.5) / 128)[0] - targets).abs()
        each = torch.where(error < 0.03, error ** 2 / 0.06, error - 0.015).mean(1)
        loss = (each * weights).sum() / weights.sum()
        schedule.descend(50 * loss, corners=error.mean())
    run.finish()


def report(args, network):
    """Corner error in sides of the aligned crop, on the development photos."""
    rng = np.random.default_rng(5)
    found = usable(faces.from_photos(args.data, subset="development"))
    scenery = found[0].image
    kinds = {"points by people": [f for f in found if f.human], "the same, masks painted on": [f for f in found if f.human],
             "worn masks, teacher's points": [f for f in found if f.mask > 0 and f.side >= 40],
             "bare, teacher's points": [f for f in found if not f.human and f.mask == faces.BARE and f.side >= 40]}
    for turn in (0, 14):
        for kind, group in kinds.items():
            crops, targets = zip(*(cut(rng, scene(rng, f, scenery, "painted" in kind, turn, True), True) for f in group))
            with torch.no_grad():
                x = (torch.from_numpy(np.stack(crops)).permute(0, 3, 1, 2).float() - 127.5) / 128
                got = network(x)[0].numpy()
            targets = np.stack(targets)
            length = np.hypot(targets[:, 2] - targets[:, 0], targets[:, 3] - targets[:, 1]) / np.sqrt(2)
            off = (got - targets).reshape(-1, 2, 2)
            error = np.hypot(off[..., 0], off[..., 1]).mean(1) / length
            print(f"  {kind}{', turned' if turn else ''}: {len(group)} faces, median {100 * np.median(error):.2f} %, "
                  f"mean {100 * error.mean():.2f} %, 90 % below {100 * np.quantile(error, 0.9):.2f} %", flush=True)
