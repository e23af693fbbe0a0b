"""Trains LiveDetect_RGB and LiveDetect_NIR: a live face, or a print or screen before the camera."""
import copy
import os

import cv2
import numpy as np
import torch
import torch.nn.functional as F

from . import attacks, coverings, faces, replays, running

CUTS = 3          # distances, jitters and cameras for the same rendering
RENDER = 164      # pixels of the face's box where media are drawn: finer than the crop, so that their patterns alias as in life
LIVE = {"LiveDetect_RGB": 1, "LiveDetect_NIR": 0}  # the class that the engine reads
RECIPE = {"LiveDetect_RGB": (500, 2e-3), "LiveDetect_NIR": (3500, 2e-3)}
# Under visible light all crops are made beforehand: one run is short, and ten of them share what they cost.
SCENES, PREPARED, BATCH = 4000, 30000, 64
REAL_SHARE = 0.7
CAMERA = 0.4      # how different the simulated cameras are; at 1 the tone is lost that tells many screens
# The raw margin that becomes the score 50: the lowest at which the sources held out of the folds keep to the aims (mean error at most 0.20, none
# above 0.40). The folds alone are best at 1.3; but the higher it is, the more people in everyday photos are refused.
SHIFT = 1.0


def render(rng, face, kind, infrared, scenery=None, turn=10, dress=True):
    """The scene as the camera's lens sees it, float32, and whether a mask is worn. kind: an attack, or None for a live face."""
    p = faces.patch(rng, face, RENDER, turn, reach=0.64, fill=True)
    masked = face.mask > 0
    if dress and not masked and rng.random() < 0.12:
        p.image, masked = coverings.mask(rng, p.image, p.points, scenery), True
    elif dress and rng.random() < 0.05:
        p.image = coverings.glasses(rng, p.image, p.points, rng.random() < 0.5)
    unit = float(np.hypot(*np.diff(faces.corners(p.points), axis=0)[0]) / np.sqrt(2))
    if infrared:
        p.image = (attacks.near_infrared_attack(rng, kind, p.image, p.points, unit) if kind
                   else attacks.near_infrared(rng, p.image, p.points, unit))
    elif kind:
        p.image = attacks.attack(rng, kind, p.image, unit)
    return p, masked, unit


def cut(rng, p, masked, unit, infrared, spread=1.0):
    """What the engine hands to the network, as the detector and a camera at some distance bring it about."""
    scale = np.exp(rng.uniform(np.log(76), np.log(max(unit, 77)))) / unit
    image = cv2.resize(p.image, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
    image = attacks.camera(rng, image, 0.6)  # worse ones wipe out what tells an attack, and teach nothing
    scale = image.shape[0] / p.image.shape[0]
    points = p.points * scale + rng.normal(0, 0.015 * spread, 2) * unit * scale
    if masked:
        crop = faces.align(image, faces.corners(points) + rng.normal(0, 0.025 * spread, (2, 2)) * unit * scale, faces.TWO_CORNERS)
    else:
        crop = faces.align(image, points + rng.normal(0, 0.013 * spread, (5, 2)) * unit * scale)
    if rng.random() < 0.08:  # a face at the frame's edge
        n, side = int(rng.integers(4, 36)), int(rng.integers(4))
        crop[(slice(0, n), slice(-n, None), slice(None), slice(None))[side], (slice(None), slice(None), slice(0, n), slice(-n, None))[side]] = 0
    return crop[None, 24:88, 16:96] if infrared else crop.transpose(2, 0, 1)


class InfraredCrops(torch.utils.data.IterableDataset):
    def __init__(self, found, seed):
        self.found, self.seed = found, seed
        self.weight = _weights(found)

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        while True:
            live = bool(rng.random() < 0.5)
            p, masked, unit = _scene(rng, self.found, self.weight, live, True)
            for _ in range(CUTS):
                yield np.ascontiguousarray(cut(rng, p, masked, unit, True)), live


def _weights(found):
    weight = np.array([{"helen": 5.0, "portraits": 3.0, "mask_close": 3.0, "groups": 1.5, "net80": 1.0}.get(f.pack, 0.6) for f in found])
    return np.cumsum(weight) / weight.sum()


def _scene(rng, found, weight, live, infrared):
    """A drawn scene: a face of the packs, or an attack with it."""
    kinds = attacks.NIR_KINDS if infrared else attacks.PRINTS + attacks.SCREENS
    while True:
        face = found[min(int(np.searchsorted(weight, rng.random())), len(found) - 1)]
        scenery = found[int(rng.integers(len(found)))].image
        p, masked, unit = render(rng, face, None if live else kinds[int(rng.integers(len(kinds)))], infrared, scenery)
        if 40 < unit < 400:
            return p, masked, unit


def prepare(args):
    """Crops for visible light, uint8, and whether they are live, without the sources of --leave-out.

    PREPARED crops of all sources are kept in WORK: the runs of a leave-one-out share what they cost. So a crop shows nothing of another
    source than its own."""
    path = os.path.join(args.work, "liveness_crops.npz")
    if not os.path.exists(path):
        os.makedirs(args.work, exist_ok=True)
        crops, live, source = _prepared(args)
        np.savez(path + ".part.npz", crops=crops, live=live, source=source)
        os.replace(path + ".part.npz", path)
    with np.load(path) as kept:
        chosen = ~np.isin(kept["source"], args.leave_out)
        return kept["crops"][chosen], kept["live"][chosen]


def _prepared(args):
    cv2.setNumThreads(1)
    rng = np.random.default_rng(args.seed)
    real = replays.load(args)
    names = sorted({r.source for r in real})
    print(f"real photographs: {sum(r.live for r in real)} live, {sum(not r.live for r in real)} attacks, of {names}", flush=True)
    found = _faces(args)
    weight = _weights(found)
    drawn = [[_scene(rng, found, weight, live, False) for _ in range(SCENES // 2)] for live in (False, True)]
    groups = [[[r for r in real if r.source == n and r.live == live] for n in names] for live in (False, True)]
    groups = [[g for g in of_class if g] for of_class in groups]
    # A source of many frames shows the same few people as one of few.
    shares = [np.array([len(g) ** 0.35 for g in of_class]) for of_class in groups]
    crops, lives, sources = np.empty((PREPARED, 3, faces.CROP, faces.CROP), np.uint8), [], []
    for crop in crops:
        live = int(rng.random() < 0.5)
        if groups[live] and rng.random() < REAL_SHARE:
            group = groups[live][int(rng.choice(len(shares[live]), p=shares[live] / shares[live].sum()))]
            r = group[int(rng.integers(len(group)))]
            made = replays.cut(rng, r.image, r.points, r.unit, CAMERA, r.inside, group)
            sources.append(r.source)
        else:
            p, _, unit = drawn[live][int(rng.integers(SCENES // 2))]
            made = replays.cut(rng, np.clip(p.image, 0, 255).astype(np.uint8), p.points, unit, CAMERA)
            sources.append("drawn")
        crop[:] = (made[:, ::-1] if rng.random() < 0.5 else made).transpose(2, 0, 1)
        lives.append(live)
    return crops, np.array(lives), np.array(sources)


def _batches(crops, live, seed):
    rng = np.random.default_rng(seed)
    while True:
        order = rng.permutation(len(crops))
        for chosen in order[:len(order) // BATCH * BATCH].reshape(-1, BATCH):
            x = torch.from_numpy(crops[np.sort(chosen)]).float()
            mirrored = torch.from_numpy(rng.random(BATCH) < 0.5)
            x[mirrored] = x[mirrored].flip(3)
            gain = torch.from_numpy(np.exp(rng.normal(0, 0.06, (BATCH, 3, 1, 1)))).float()
            x = x * gain + torch.from_numpy(rng.normal(0, 6, (BATCH, 1, 1, 1))).float()
            yield x.clamp(0, 255), torch.from_numpy(live[np.sort(chosen)]).long()


class Average:
    """Runs along with a network and keeps the mean of its latest weights, which is surer than the last of them."""

    def __init__(self, network):
        self.network, self.steps = copy.deepcopy(network), 0

    def follow(self, network):
        self.steps += 1
        with torch.no_grad():
            for mean, now in zip(self.network.state_dict().values(), network.state_dict().values()):
                if mean.dtype.is_floating_point:
                    mean.lerp_(now, 1 - min(0.99, self.steps / (self.steps + 14)))
                else:
                    mean.copy_(now)


def _frequencies(network):
    """Begins the first layer with the cosine transform of its window: halftones and pixel grids are frequencies, and filters
    for the highest ones take long to be found from noise. Most for brightness, two each for the two colour differences."""
    weight = network.blocks["conv1"][0].weight
    n = weight.shape[2]
    basis = [np.cos(np.pi / n * (np.arange(n) + 0.5) * k) for k in range(n)]
    chosen = [(u, v, (1, 1, 1)) for u in range(n) for v in range(n)]
    chosen += [(u, v, tint) for tint in ((1, 0, -1), (-0.5, 1, -0.5)) for u, v in ((0, 0), (0, n // 2))]
    with torch.no_grad():
        for k, (u, v, tint) in enumerate(chosen[:weight.shape[0]]):
            f = np.multiply.outer(np.array(tint, np.float64), np.outer(basis[u], basis[v]))
            weight[k] = torch.from_numpy(f / np.sqrt((f ** 2).sum())).float()


def _faces(args):
    found = [f for f in faces.from_photos(args.data, least=36) if f.has_points and f.mask >= 0] + faces.from_face_packs(args.data)
    print(f"{len(found)} faces", flush=True)
    return found


def train(args, network):
    (_train_infrared if args.network == "LiveDetect_NIR" else _train_visible)(args, network)


def _train_visible(args, network):
    """Short, from a network that has learnt drawn attacks: longer runs learn the sources' people by heart."""
    crops, live = prepare(args)
    steps, rate = RECIPE[args.network]
    _frequencies(network)
    run = running.Run(args, network, steps=args.steps or steps, rate=args.rate or rate, weight_decay=2e-2,
                      name="-without-".join([args.network, *args.leave_out]))
    average = Average(network)
    drop = torch.nn.Dropout(0.3)
    for (x, classes), schedule in run.over(_batches(crops, live, args.seed + run.step)):
        network.bfloat16 = not args.single
        logits = network((x - 127.5) / 128, before_dense=drop)[0]
        loss = F.cross_entropy(logits, classes, label_smoothing=0.06)
        schedule.descend(loss, entropy=loss, error=(logits.argmax(1) != classes).float().mean())
        average.follow(network)
    network.load_state_dict(average.network.state_dict())
    run.finish()


def _train_infrared(args, network):
    steps, rate = RECIPE[args.network]
    run = running.Run(args, network, steps=args.steps or steps, rate=args.rate or rate, weight_decay=1e-3)
    loader = torch.utils.data.DataLoader(InfraredCrops(_faces(args), args.seed + run.step), batch_size=96, num_workers=args.workers)
    for (crops, live), schedule in run.over(loader):
        network.bfloat16 = not args.single and run.step < 0.85 * run.steps
        classes = 1 - live.long()
        logits = network((crops.float() - 127.5) / 128)[0]
        loss = F.cross_entropy(logits, classes, label_smoothing=0.03)
        schedule.descend(loss, entropy=loss, error=(logits.argmax(1) != classes).float().mean())
    run.finish()


def _margins(args, network):
    """Logit of live against attack on the development faces: {kind: values}, None for live faces."""
    infrared = args.network == "LiveDetect_NIR"
    rng = np.random.default_rng(5)
    found = [f for f in faces.from_photos(args.data, subset="development", least=45) if f.has_points and f.mask >= 0]
    found += faces.from_face_packs(args.data, development=True)[::3]
    kinds = (None,) + (attacks.NIR_KINDS + attacks.NIR_HELD_OUT if infrared else attacks.PRINTS + attacks.SCREENS + attacks.HELD_OUT)
    out = {}
    for kind in kinds:
        chosen = [found[int(i)] for i in rng.choice(len(found), min(len(found), 600 if kind is None else 200), replace=False)]
        crops = np.stack([cut(rng, *render(rng, f, kind, infrared, turn=4, dress=False), infrared) for f in chosen])
        with torch.no_grad():
            logits = network((torch.from_numpy(crops).float() - 127.5) / 128)[0].numpy()
        out[kind] = logits[:, LIVE[args.network]] - logits[:, 1 - LIVE[args.network]]
    return out


def operating_score(args, network):
    """The uncalibrated score of the second class that becomes 50. Near infrared: as many live faces are refused as attacks of the trained kinds
    are let in. Visible light: where the held-out sources of the folds had the fewest errors; drawn attacks are only told."""
    if args.leave_out:  # a network for measuring
        return 1 / (1 + np.exp(-SHIFT))
    margins = _margins(args, network)
    held_out = attacks.NIR_HELD_OUT if args.network == "LiveDetect_NIR" else attacks.HELD_OUT
    live = margins[None]
    trained = np.concatenate([v for k, v in margins.items() if k and k not in held_out])
    cuts = np.linspace(-4, 4, 321)
    cut_at = float(cuts[np.argmin([abs((live < c).mean() - (trained >= c).mean()) for c in cuts])])
    if args.network == "LiveDetect_RGB":
        cut_at = SHIFT
    print(f"  live: {len(live)} faces, {100 * (live < cut_at).mean():.1f} % refused")
    for kind, values in margins.items():
        if kind:
            print(f"  {kind}{' (never trained on)' if kind in held_out else ''}: {100 * (values >= cut_at).mean():.1f} % let in", flush=True)
    return 1 / (1 + np.exp(-cut_at if LIVE[args.network] else cut_at))
