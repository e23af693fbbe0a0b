"""Trains FaceRecog and FaceMaskRecog: the embedding of the teacher, from the same crop or from its upper half."""
import numpy as np
import torch
from torch.nn.functional import normalize

from . import device_batches, embedding, face_store, recognition_batches, running
from .recognition_batches import answer, to_input, warp
from .teacher import Teacher

BATCH = 128
# How much of the mean is taken out. With masks, taking out all of it would bring too many different people to the
# similarity that is accepted at once.
CENTRED = {"FaceRecog": 1.0, "FaceMaskRecog": 0.5}
BANK = 1024         # faces that a batch's similarities are compared with
QUEUE = 16_384      # answers among which the most similar other faces are looked for
HARDEST = 64        # of them
SETTLED = 2000      # steps until the most similar ones count fully


class Queue:
    """The network's last answers beside the teacher's, in a ring."""

    def __init__(self, size, device):
        self.given, self.wanted = (torch.zeros(size, embedding.FEATURES, device=device) for _ in range(2))
        self.faces = torch.zeros(size, dtype=torch.int64, device=device)
        self.filled = self.next = 0

    def add(self, given, wanted, faces):
        at = (self.next + torch.arange(len(given), device=given.device)) % len(self.given)
        self.given[at], self.wanted[at], self.faces[at] = given, wanted, faces
        self.next = (self.next + len(given)) % len(self.given)
        self.filled = min(len(self.given), self.filled + len(given))

    def tail(self, unit, wanted, faces):
        """Mean squared error of the similarities to the other faces that either takes for the most similar ones; too similar counts
        twice, since thresholds are set by it."""
        got, want = unit @ self.given[:self.filled].T, wanted @ self.wanted[:self.filled].T
        most = torch.maximum(got.detach(), want).masked_fill(faces[:, None] == self.faces[:self.filled], -2.0)
        most, at = most.topk(min(HARDEST, self.filled), 1)
        error = (got.gather(1, at) - want.gather(1, at)) * (most > -2.0)
        return (error.square() * torch.where(error > 0, 2.0, 1.0)).mean()

    def bank(self, count):
        return self.wanted[torch.randint(self.filled, (count,), device=self.wanted.device)]


def loss_of(unit, wanted, bank):
    """(what is minimised, mean cosine distance). Half of it counts only the error that changes similarities to other faces."""
    distance = (1 - (unit * wanted).sum(1)).mean()
    similarities = ((unit - wanted) @ bank.T).square().mean() * embedding.FEATURES
    return 0.5 * distance + 0.25 * similarities, distance.detach()


def complete(aligned, teacher):
    """Asks the teacher about faces that came without its answers."""
    missing = np.isnan(aligned.answers[:, 0])
    if missing.any():
        print(f"the teacher is asked about {missing.sum()} faces", flush=True)
        aligned.answers[missing] = answer(teacher, aligned.plain[missing]).numpy()


def train(args, network):
    aligned, teacher = face_store.read(args.faces), Teacher(args.data, args.single).to(args.device)
    print(f"{len(aligned)} aligned faces", flush=True)
    complete(aligned, teacher)
    run = running.Run(args, network, steps=args.steps or 40_000, rate=args.rate or 2e-3)
    begun, batch = run.step, (args.batch or BATCH) // run.processes
    if args.device == "cpu":
        source = recognition_batches.batches(aligned, teacher, args.network, batch, [args.seed, run.step, run.process], args.workers,
                                             run.processes)
    else:
        network.to(memory_format=torch.channels_last)
        source = device_batches.Batches(aligned, teacher, args.network, batch, args.seed + run.step, args.device)
    forward = torch.compile(network) if args.compile else network
    queue = Queue(QUEUE, args.device)
    for (crops, wanted, faces), schedule in run.over(source):
        network.bfloat16 = not args.single and run.step < 0.95 * run.steps
        unit = normalize(forward(crops))
        # Also those of this batch can be the most similar ones.
        queue.add(unit.detach(), wanted, faces)
        loss, distance = loss_of(unit, wanted, queue.bank(BANK))
        tail = queue.tail(unit, wanted, faces)
        schedule.descend(loss + args.tail * min(1.0, run.step / SETTLED) * tail, distance=distance, tail=tail.detach())
    run.finish()
    if run.process > 0:
        raise SystemExit  # the first process does the rest alone
    if run.step > begun:
        centre(aligned, network)
        run.save()


@torch.no_grad()
def centre(aligned, network):
    """Takes out of the answers what all faces have in common, or part of it: it tells nobody apart."""
    at = np.random.default_rng(7).permutation(len(aligned))[:3000]
    crops = np.stack([warp(aligned.images[k], aligned.crops[k], embedding.CROP) for k in at])
    network.eval()
    bias = network.fc.bias
    features = torch.cat([network(x.to(bias.device)) for x in to_input(crops).split(64)])
    lengths = features.norm(dim=1, keepdim=True)
    bias -= CENTRED[network.definition.name] * lengths.mean() * (features / lengths).mean(0)


def best_accuracy(scores, same):
    order = np.argsort(-scores)
    hits, misses = np.cumsum(same[order]), np.cumsum(~same[order])
    return float(((hits + (~same).sum() - misses) / len(same)).max())


def report(args, network):
    """On the development faces: how near the teacher, and how well it tells the named people apart."""
    aligned = face_store.read(args.faces, development=True)
    wanted, named = torch.from_numpy(aligned.answers), np.array([bool(name) for name in aligned.names])
    crops = np.stack([warp(image, crop, embedding.CROP) for image, crop in zip(aligned.images, aligned.crops)])
    with torch.no_grad():
        got = torch.cat([normalize(network(x)) for x in to_input(crops).split(64)])
    cosines = (got * wanted).sum(1).numpy()
    print(f"  mean cosine with the teacher {cosines.mean():.4f}: of {named.sum()} faces of {len(set(aligned.names) - {''})} people "
          f"{cosines[named].mean():.4f}, of {(~named).sum()} others {cosines[~named].mean():.4f}", flush=True)
    names = np.array(aligned.names)[named]
    rows, columns = np.triu_indices(len(names), 1)
    same = names[rows] == names[columns]
    keep = same | (np.random.default_rng(3).random(len(same)) < same.sum() / (~same).sum())
    for who, e in (("teacher", wanted[named]), ("network", got[named])):
        scores = (e @ e.T).numpy()[rows, columns]
        line = f"  {who}: accuracy {best_accuracy(scores[keep], same[keep]):.4f}"
        for rate in (1e-2, 1e-3, 1e-4):
            line += f", {float((scores[same] > np.quantile(scores[~same], 1 - rate)).mean()):.3f} of the same at {rate:g} of the different"
        print(line, f"({same.sum()} same pairs)", flush=True)
