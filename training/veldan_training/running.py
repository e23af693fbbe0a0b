"""What all training runs share: schedule, checkpoints that a run continues from, progress lines."""
import math
import os
import time

import torch
import torch.distributed

from . import weights


def join():
    """(this process's number, how many train the same network together): see train.py's --processes."""
    if "WORLD_SIZE" not in os.environ:
        return 0, 1
    if not torch.distributed.is_initialized():
        torch.distributed.init_process_group("gloo")
    return torch.distributed.get_rank(), torch.distributed.get_world_size()


def _share_gradients(parameters, processes):
    parameters = [p for p in parameters if p.grad is not None]
    flat = torch.cat([p.grad.flatten() for p in parameters])
    torch.distributed.all_reduce(flat)
    for p, mean in zip(parameters, (flat / processes).split([p.numel() for p in parameters])):
        p.grad.copy_(mean.view_as(p))


def _contains(wide, narrow):
    return wide.dim() == narrow.dim() and all(a >= b for a, b in zip(wide.shape, narrow.shape))


def _widened(wide, narrow):
    """The narrow weights in front of fresh ones. What was there takes nothing from the new channels at first, so that the
    wider network begins with the narrower one's answers."""
    wide = wide.clone()
    if wide.dim() > 1:
        wide[:narrow.shape[0], narrow.shape[1]:] = 0
    wide[tuple(slice(n) for n in narrow.shape)] = narrow
    return wide


class Run:
    """AdamW with a warm-up and a cosine schedule over a fixed number of steps; state in WORK/NAME.checkpoint."""

    def __init__(self, args, network, steps, rate, weight_decay=1e-4, name=None):
        self.network, self.steps, self.rate = network, steps, rate
        self.process, self.processes = join()
        os.makedirs(args.work, exist_ok=True)
        self.path = os.path.join(args.work, f"{name or args.network}.checkpoint")
        decay = [p for p in network.parameters() if p.dim() > 1]
        other = [p for p in network.parameters() if p.dim() <= 1]
        self.optimizer = torch.optim.AdamW([{"params": decay, "weight_decay": weight_decay},
                                            {"params": other, "weight_decay": 0.0}], lr=rate)
        self.step, self.means, self.saved = 0, {}, time.time()
        self.until = time.time() + 60 * (getattr(args, "minutes", None) or float("inf"))
        if os.path.exists(self.path) and not args.fresh:
            state = torch.load(self.path, map_location="cpu")
            network.load_state_dict(state["network"])
            self.optimizer.load_state_dict(state["optimizer"])
            self.step = state["step"]
            print(f"continues at step {self.step}", flush=True)
        elif args.start:
            # Another network's checkpoint gives the layers that both have, a narrower one the first channels.
            own, given = network.state_dict(), weights.read(args.start)
            fitting = {k: _widened(own[k].cpu(), v) for k, v in given.items() if k in own and _contains(own[k], v)}
            network.load_state_dict(fitting, strict=False)
            print(f"starts from {len(fitting)} of {len(own)} weights in {args.start}", flush=True)

    def over(self, loader):
        self.network.train()
        started, first = time.time(), self.step
        for batch in loader:
            if self.step >= self.steps:
                return
            warm = min(1.0, (self.step + 1) / 200)
            rate = self.rate * warm * (0.5 + 0.5 * math.cos(math.pi * self.step / self.steps)) + 1e-6
            for group in self.optimizer.param_groups:
                group["lr"] = rate
            yield batch, self
            self.step += 1
            if self.step % 200 == 0 and self.process == 0:
                text = "  ".join(f"{k} {v:.4f}" for k, v in self.means.items())
                pace = (self.step - first) / (time.time() - started)
                print(f"step {self.step}/{self.steps}  {text}  {pace:.1f} steps/s", flush=True)
            if time.time() - self.saved > 120:
                self.save()
            if time.time() > self.until and self.step < self.steps:
                self.save()
                raise SystemExit(f"stopped at step {self.step}; the same command continues")

    def descend(self, loss, **shown):
        self.optimizer.zero_grad(set_to_none=True)
        loss.backward()
        if self.processes > 1:
            _share_gradients(self.network.parameters(), self.processes)
        torch.nn.utils.clip_grad_norm_(self.network.parameters(), 5.0)
        self.optimizer.step()
        for k, v in shown.items():
            v = float(v)
            self.means[k] = v if k not in self.means else 0.99 * self.means[k] + 0.01 * v

    def save(self):
        self.saved = time.time()
        if self.process > 0:
            return
        torch.save({"network": self.network.state_dict(), "optimizer": self.optimizer.state_dict(), "step": self.step},
                   self.path + ".part")
        os.replace(self.path + ".part", self.path)

    def finish(self):
        self.save()
        self.network.eval()
