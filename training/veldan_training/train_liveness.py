"""Trains LiveDetect_RGB and LiveDetect_NIR: a live face, or a print or screen before the camera."""
import csv
import os
import zipfile

import cv2
import numpy as np
import torch
import torch.nn.functional as F

from . import attacks, cascade, coverings, exporting, faces, photos, running

CUTS = 3          # distances, jitters and cameras for the same rendering
RENDER = 164      # pixels of the face's box where media are drawn: finer than the crop, so that their patterns alias as in life
LIVE = {"LiveDetect_RGB": 1, "LiveDetect_NIR": 0}  # the class that the engine reads
REAL_SHARE = 0.16
# Longer is not better under visible light: drawn attacks go on being learnt while real ones of other people are forgotten.
RECIPE = {"LiveDetect_RGB": (2200, 3e-3), "LiveDetect_NIR": (3500, 2e-3)}


def real_attacks(args):
    """The real photographs that may be used for training: [(face, live)]. Their points come from the detector, which leaves out the turned ones."""
    folder = f"{args.data}/spoof"
    if not os.path.exists(f"{folder}/photos.csv"):
        return []
    detector = cascade.Cascade(*(exporting.read(args.networks, n) for n in ("FaceDetectP", "FaceDetectR", "FaceDetectO")))
    out = []
    with zipfile.ZipFile(f"{folder}/photos.zip") as z, open(f"{folder}/photos.csv", newline="") as f:
        members = {n.split("/")[-1]: n for n in z.namelist()}
        for name, part, kind in csv.reader(f):
            if part != "set1" or name not in members:
                continue
            image = cv2.imdecode(np.frombuffer(z.read(members[name]), np.uint8), cv2.IMREAD_COLOR)
            _, _, points = detector.detect(image)
            if len(points):
                p = points[0].reshape(5, 2)
                out.append((faces.Face("spoof", name, image, photos.box_of_points(points[0]), p, False, faces.BARE), kind == "live"))
    return out


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


class Crops(torch.utils.data.IterableDataset):
    def __init__(self, found, real, infrared, seed):
        self.found, self.infrared, self.seed = found, infrared, seed
        self.real = [[f for f, live in real if live == wanted] for wanted in (False, True)]
        weight = np.array([{"helen": 5.0, "portraits": 3.0, "mask_close": 3.0, "groups": 1.5, "net80": 1.0}.get(f.pack, 0.6) for f in found])
        self.weight = np.cumsum(weight) / weight.sum()

    def __iter__(self):
        info = torch.utils.data.get_worker_info()
        rng = np.random.default_rng([self.seed, info.id if info else 0])
        cv2.setNumThreads(1)
        kinds = attacks.NIR_KINDS if self.infrared else attacks.PRINTS + attacks.SCREENS
        while True:
            live = bool(rng.random() < 0.5)
            if self.real[live] and not self.infrared and rng.random() < REAL_SHARE:
                face = self.real[live][int(rng.integers(len(self.real[live])))]
                p, masked, unit = render(rng, face, None, False, dress=False)
            else:
                face = self.found[min(int(np.searchsorted(self.weight, rng.random())), len(self.found) - 1)]
                scenery = self.found[int(rng.integers(len(self.found)))].image
                p, masked, unit = render(rng, face, None if live else kinds[int(rng.integers(len(kinds)))], self.infrared, scenery)
            if not 40 < unit < 400:
                continue
            for _ in range(CUTS):
                yield np.ascontiguousarray(cut(rng, p, masked, unit, self.infrared)), live


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


def train(args, network):
    infrared = args.network == "LiveDetect_NIR"
    found = [f for f in faces.from_photos(args.data, least=36) if f.has_points and f.mask >= 0] + faces.from_face_packs(args.data)
    real = [] if infrared else real_attacks(args)
    print(f"{len(found)} faces; real photographs: {sum(live for _, live in real)} live, {sum(not live for _, live in real)} attacks", flush=True)
    steps, rate = RECIPE[args.network]
    if not infrared:
        _frequencies(network)
    run = running.Run(args, network, steps=args.steps or steps, rate=args.rate or rate, weight_decay=1e-3)
    loader = torch.utils.data.DataLoader(Crops(found, real, infrared, args.seed + run.step), batch_size=96, num_workers=args.workers)
    for (crops, live), schedule in run.over(loader):
        network.bfloat16 = not args.single and run.step < 0.85 * run.steps
        classes = live.long() if LIVE[args.network] else 1 - live.long()
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
    """The uncalibrated score of the second class at which as many live faces are refused as attacks of the trained kinds are let in."""
    margins = _margins(args, network)
    held_out = attacks.NIR_HELD_OUT if args.network == "LiveDetect_NIR" else attacks.HELD_OUT
    live = margins[None]
    trained = np.concatenate([v for k, v in margins.items() if k and k not in held_out])
    cuts = np.linspace(-4, 4, 321)
    cut_at = float(cuts[np.argmin([abs((live < c).mean() - (trained >= c).mean()) for c in cuts])])
    print(f"  live: {len(live)} faces, {100 * (live < cut_at).mean():.1f} % refused")
    for kind, values in margins.items():
        if kind:
            print(f"  {kind}{' (never trained on)' if kind in held_out else ''}: {100 * (values >= cut_at).mean():.1f} % let in", flush=True)
    return 1 / (1 + np.exp(-cut_at if LIVE[args.network] else cut_at))
