"""Trains FaceQuality: the probability falls steadily with the damage done to the face."""
import cv2
import numpy as np
import torch

from . import coverings, damage, faces, photos, running

SIZE = 24
CUTS = 2             # boxes set around the same damaged face
BEST = 0.97          # what an undamaged face should get
MASK_LEVEL = 0.12    # a well worn mask is no reason to refuse a face: masked faces have a recognizer of their own
SUNGLASSES_LEVEL = 0.25


def sharpness(face):
    """Detail of the face at 48 pixels: faces that were photographed blurred are no examples of good ones."""
    x, y, w, h = (int(v) for v in face.box)
    piece = face.image[max(y, 0):y + h, max(x, 0):x + w]
    if min(piece.shape[:2]) < 8:
        return 0.0
    grey = cv2.cvtColor(cv2.resize(piece, (48, 48), interpolation=cv2.INTER_AREA), cv2.COLOR_BGR2GRAY)
    return float(cv2.Laplacian(grey, cv2.CV_64F).var()) / max(float(grey.var()), 50.0)


def good(found, share=0.8, least=60):
    """The faces of each pack that are large, inside the picture and among the sharpest `share`."""
    out = []
    for pack in sorted({f.pack for f in found}):
        group = [f for f in found if f.pack == pack and f.side >= least and f.has_points and f.mask >= 0
                 and f.box[0] > -0.02 * f.side and f.box[1] > -0.02 * f.side
                 and f.box[0] + f.box[2] < f.image.shape[1] + 0.02 * f.side and f.box[1] + f.box[3] < f.image.shape[0] + 0.02 * f.side]
        if group:
            values = np.array([sharpness(f) for f in group])
            out += [f for f, v in zip(group, values) if v >= np.quantile(values, 1 - share)]
    return out


def sample(rng, face, damages, plain=False, scenery=None):
    """Crops and the level of all damages [(kind, level)] and of the head's turn together."""
    side = np.exp(rng.uniform(np.log(45), np.log(max(50.0, min(face.side * 1.1, 160)))))
    p = faces.patch(rng, face, side, 0 if plain else 8, reach=0.7)
    image, box = p.image, p.box
    left = 1 - damage.pose_level(p.points)
    if face.mask > 0:
        left *= 1 - MASK_LEVEL
    if not plain:
        if face.mask == faces.BARE and rng.random() < 0.12:
            image = coverings.mask(rng, image, p.points, scenery)
            left *= 1 - MASK_LEVEL
        elif rng.random() < 0.04:
            image = coverings.glasses(rng, image, p.points)
            left *= 1 - SUNGLASSES_LEVEL
        if rng.random() < 0.6:  # exposure and white balance as cameras differ: no damage
            image = np.clip(image * (rng.uniform(0.75, 1.25) * rng.uniform(0.92, 1.08, 3)) + rng.uniform(-8, 8), 0, 255).astype(np.uint8)
        if rng.random() < 0.1:
            image = cv2.cvtColor(cv2.cvtColor(image, cv2.COLOR_BGR2GRAY), cv2.COLOR_GRAY2BGR)
    # Half faces first: a camera blurs and darkens what is in the frame.
    for kind, level in sorted(damages, key=lambda d: d[0] != "half"):
        image, box = damage.apply(rng, kind, image, box, level)
        left *= 1 - level
    if not plain and rng.random() < 0.2:
        image = cv2.imdecode(cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, int(rng.integers(60, 95))])[1], 1)
    crops = []
    for _ in range(1 if plain else CUTS):
        x, y, w, h = faces.detector_box(rng, box)
        x1, y1, x2, y2 = max(x, 0), max(y, 0), min(x + w, image.shape[1]), min(y + h, image.shape[0])
        crops.append(faces.clipped_crop(image, x1, y1, max(x2 - x1, 2), max(y2 - y1, 2), SIZE))
    return crops, 1 - left


class Crops(torch.utils.data.IterableDataset):
    def __init__(self, bases, backgrounds, seed):
        self.bases, self.backgrounds, self.seed = bases, backgrounds, seed
        weight = np.array([{"helen": 5.0, "mask_close": 2.0, "groups": 2.0, "portraits": 2.0}.get(f.pack, 0.4) for f in bases])
        self.weight = np.cumsum(weight) / weight.sum()

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            scenery = self.backgrounds[int(rng.integers(len(self.backgrounds)))].image
            if rng.random() < 0.03:  # what is no face has no quality
                h, w = scenery.shape[:2]
                side = int(rng.integers(20, min(h, w)))
                crops = [faces.clipped_crop(scenery, int(rng.integers(0, w - side + 1)), int(rng.integers(0, h - side + 1)), side, side, SIZE)]
                level = 1.0
            else:
                face = self.bases[min(int(np.searchsorted(self.weight, rng.random())), len(self.bases) - 1)]
                count = int(np.searchsorted([0.25, 0.82, 1.0], rng.random()))
                chosen = rng.choice(damage.KINDS, count, replace=False)
                crops, level = sample(rng, face, [(k, float(rng.uniform(0, 1))) for k in chosen], scenery=scenery)
            for crop in crops:
                yield np.ascontiguousarray(crop.transpose(2, 0, 1)), np.float32(BEST * (1 - level) + 0.01)


def train(args, network):
    bases = good(faces.from_photos(args.data, least=60) + faces.from_face_packs(args.data, ("utk", "pins")))
    backgrounds = photos.load(args.data, "train", packs=["scenes", "misc", "trash", "streets"], subset="fit")
    backgrounds = [p for p in backgrounds if len(p.boxes) == 0]
    print(f"{len(bases)} good faces, {len(backgrounds)} scenes", flush=True)
    run = running.Run(args, network, steps=args.steps or 9000, rate=args.rate or 3e-3)
    loader = torch.utils.data.DataLoader(Crops(bases, backgrounds, args.seed + run.step), batch_size=128, num_workers=args.workers)
    for (crops, wanted), schedule in run.over(loader):
        network.bfloat16 = not args.single and run.step < 0.85 * run.steps
        logits = network((crops.float() - 127.5) / 128)[0]
        margin = logits[:, 1] - logits[:, 0]
        loss = torch.nn.functional.binary_cross_entropy_with_logits(margin, wanted)
        schedule.descend(loss, entropy=loss, error=(torch.sigmoid(margin) - wanted).abs().mean())
    run.finish()


def rank_correlation(a, b):
    """Spearman's, equal values sharing their mean rank."""
    def ranks(v):
        _, index, counts = np.unique(v, return_inverse=True, return_counts=True)
        return (np.cumsum(counts) - (counts - 1) / 2)[index]
    return float(np.corrcoef(ranks(np.asarray(a)), ranks(np.asarray(b)))[0, 1])


def report(args, network):
    """Scores by kind and level of damage on the development photos, sharp ones and others."""
    rng = np.random.default_rng(5)
    found = [f for f in faces.from_photos(args.data, subset="development") if f.has_points and f.side >= 60 and f.mask >= 0]
    levels = (0.2, 0.4, 0.6, 0.8, 1.0)

    def scores(group, damages):
        crops = np.stack([sample(rng, f, damages, plain=True)[0][0] for f in group])
        with torch.no_grad():
            out = network((torch.from_numpy(crops).permute(0, 3, 1, 2).float() - 127.5) / 128)[0]
        return 100 * torch.softmax(out, 1)[:, 1].numpy()

    frontal = [f for f in found if damage.pose_level(f.points) < 0.1]
    plain = scores(frontal, [])
    for name, group in (("bare", [f.mask == faces.BARE for f in frontal]), ("masked", [f.mask > 0 for f in frontal])):
        values = plain[np.array(group)]
        print(f"  undamaged, {name}: {len(values)} faces, median {np.median(values):.0f}, {100 * (values >= 60).mean():.1f} % at 60 or more, "
              f"10 % below {np.quantile(values, 0.1):.0f}", flush=True)
    every, all_levels = [plain], [np.zeros(len(plain))]
    for kind in damage.KINDS:
        columns = [scores(frontal, [(kind, level)]) for level in levels]
        values = np.concatenate([plain] + columns)
        at = np.concatenate([np.zeros(len(plain))] + [np.full(len(frontal), level) for level in levels])
        every += columns
        all_levels.append(at[len(plain):])
        means = " ".join(f"{v.mean():.0f}" for v in [plain] + columns)
        print(f"  {kind}: {means}, rank correlation {-rank_correlation(values, at):.3f}", flush=True)
    turned = scores(found, [])
    pose = np.array([damage.pose_level(f.points) for f in found])
    by_turn = [turned[(pose >= a) & (pose < a + 0.2)] for a in (0, 0.2, 0.4, 0.6)]
    means = " ".join(f"{v.mean():.0f}" for v in by_turn if len(v))
    print(f"  turned heads: {means}, rank correlation {-rank_correlation(turned, pose):.3f}")
    print(f"  all kinds together: rank correlation {-rank_correlation(np.concatenate(every), np.concatenate(all_levels)):.3f}", flush=True)
