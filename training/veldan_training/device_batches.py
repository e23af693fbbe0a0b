"""What the recognizers are shown, prepared on the device that trains: all faces lie in its memory, every crop is new.

The same changes as recognition_batches.py makes, in their form for whole batches. What takes one strength for many pictures at once (blur,
few pixels, compression) is done to several random groups of a batch.
"""
import math

import torch
from torch.nn import functional

from . import embedding
from .recognition_batches import OFF

SIDE = 128
GROUPS = 4      # of every change
# Of luminance and colour, as in the annex of the JPEG standard, for quality 50.
LUMINANCE = (16, 11, 10, 16, 24, 40, 51, 61, 12, 12, 14, 19, 26, 58, 60, 55, 14, 13, 16, 24, 40, 57, 69, 56,
             14, 17, 22, 29, 51, 87, 80, 62, 18, 22, 37, 56, 68, 109, 103, 77, 24, 35, 55, 64, 81, 104, 113, 92,
             49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99)
COLOUR = (17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99, 99, 99, 47, 66) + (99,) * 38


def warp(x, m, side):
    """x: n x 3 x s x s; m: n x 3 x 3, acts around the centres of both pictures, as recognition_batches.warp."""
    inverse, before = torch.linalg.inv(m), x.shape[-1]
    theta = torch.cat([inverse[:, :2, :2] * (side / before), inverse[:, :2, 2:] * (2 / before)], 2)
    grid = functional.affine_grid(theta, (len(x), 3, side, side), align_corners=False)
    return functional.grid_sample(x, grid, mode="bilinear", padding_mode="reflection", align_corners=False)


def compressed(x, quality):
    """What JPEG leaves, all three channels at full resolution. x: n x 3 x h x w, sides multiples of 8, 0 to 255."""
    n, _, h, w = x.shape
    to = torch.tensor([[0.299, 0.587, 0.114], [-0.168736, -0.331264, 0.5], [0.5, -0.418688, -0.081312]], device=x.device)
    k = torch.arange(8, device=x.device)
    dct = torch.cos((2 * k[None] + 1) * k[:, None] * math.pi / 16) * torch.where(k == 0, math.sqrt(0.125), 0.5)[:, None]
    factor = 50 / quality if quality < 50 else 2 - quality / 50
    table = torch.tensor([LUMINANCE, COLOUR, COLOUR], device=x.device, dtype=torch.float32).view(3, 1, 8, 1, 8)
    table = torch.clamp(torch.floor(table * factor + 0.5), 1, 255)
    planes = torch.einsum("ij,njhw->nihw", to, x - torch.tensor([128.0], device=x.device)).view(n, 3, h // 8, 8, w // 8, 8)
    waves = torch.einsum("ua,ncyaxb,vb->ncyuxv", dct, planes, dct)
    waves = torch.round(waves / table) * table
    planes = torch.einsum("ua,ncyuxv,vb->ncyaxb", dct, waves, dct).reshape(n, 3, h, w)
    return torch.clamp(torch.einsum("ij,njhw->nihw", torch.linalg.inv(to), planes) + 128, 0, 255)


def _filtered(x, kernel):
    """Every channel with one small odd kernel."""
    n, c, h, w = x.shape
    pad = [kernel.shape[1] // 2] * 2 + [kernel.shape[0] // 2] * 2
    return functional.conv2d(functional.pad(x.reshape(n * c, 1, h, w), pad, mode="reflect"), kernel[None, None]).view(n, c, h, w)


def blurred(x, sigma):
    k = torch.arange(-(r := max(1, math.ceil(3 * sigma))), r + 1, device=x.device, dtype=torch.float32)
    line = torch.exp(-k.square() / (2 * sigma * sigma))
    line = line / line.sum()
    return _filtered(_filtered(x, line[None]), line[:, None])


def few_pixels(x, size):
    small = functional.interpolate(x, size=(size, size), mode="area")
    return functional.interpolate(small, size=x.shape[2:], mode="bilinear", align_corners=False)


class Batches:
    """Iterates without end over (input of the network, wanted answers, which faces)."""

    def __init__(self, aligned, teacher, network, size, seed, device):
        self.images = torch.from_numpy(aligned.images).to(device)
        self.crops = torch.from_numpy(aligned.crops).float().to(device)
        self.answers = torch.from_numpy(aligned.answers).to(device)
        self.teacher, self.size, self.device = teacher, size, device
        self.off, self.masked = OFF[network], network == "FaceMaskRecog"
        self.random = torch.Generator(device).manual_seed(seed)
        self.numbers = torch.Generator().manual_seed(seed)  # those that a whole group shares

    def _uniform(self, low, high, *shape):
        return low + (high - low) * torch.rand(*shape, generator=self.random, device=self.device)

    def _normal(self, *shape):
        return torch.randn(*shape, generator=self.random, device=self.device)

    def _number(self, low, high):
        return low + (high - low) * float(torch.rand((), generator=self.numbers))

    def _some(self, x, share, change):
        """Replaces a random share of the pictures by change(pictures), in GROUPS groups."""
        count = round(len(x) * share / GROUPS)
        order = torch.randperm(len(x), generator=self.random, device=self.device)
        for at in order[:GROUPS * count].split(count) if count else ():
            x[at] = change(x[at])

    def _chosen(self, n, share):
        return torch.rand(n, 1, 1, 1, generator=self.random, device=self.device) < share

    def _jitter(self, n, shift, turn, grow, mirror, strong):
        scale = torch.exp(torch.clamp(self._normal(n) * grow * strong, -0.2, 0.2))
        angle = torch.deg2rad(torch.clamp(self._normal(n) * turn * strong, -20, 20))
        flip = torch.where(self._uniform(0, 1, n) < mirror, -1.0, 1.0)
        m = torch.zeros(n, 3, 3, device=self.device)
        m[:, 0, 0], m[:, 0, 1] = scale * torch.cos(angle) * flip, -scale * torch.sin(angle)
        m[:, 1, 0], m[:, 1, 1] = scale * torch.sin(angle) * flip, scale * torch.cos(angle)
        m[:, :2, 2] = torch.clamp(self._normal(n, 2) * shift * strong[:, None], -8, 8)
        m[:, 2, 2] = 1
        return m

    def _colour(self, x):
        n = len(x)
        on = self._chosen(n, 0.5)
        x = torch.where(on, x * self._uniform(0.7, 1.3, n, 1, 1, 1) + self._uniform(-25, 25, n, 1, 1, 1), x)
        x = torch.where(self._chosen(n, 0.3), x * self._uniform(0.8, 1.2, n, 3, 1, 1), x)
        grey = x.mean(1, keepdim=True)
        x = torch.where(self._chosen(n, 0.2), grey + (x - grey) * self._uniform(0, 0.7, n, 1, 1, 1), x)
        x = torch.clamp(x, 0, 255)
        x = torch.where(self._chosen(n, 0.2), 255 * (x / 255).clamp_min(1e-4) ** self._uniform(0.5, 2.2, n, 1, 1, 1), x)
        x = torch.where(self._chosen(n, 0.08), grey.expand_as(x), x)
        at, a = torch.linspace(-0.5, 0.5, SIDE, device=self.device), self._uniform(0, 2 * math.pi, n, 1, 1, 1)
        ramp = (torch.cos(a) * at + torch.sin(a) * at[:, None]) * self._uniform(0.5, 1.4, n, 1, 1, 1)
        return torch.where(self._chosen(n, 0.06), x * torch.clamp(1 + ramp, 0.15, 1.8), x)

    def _dark(self, x, share, low, high):
        n = len(x)
        dark = x * self._uniform(low, high, n, 1, 1, 1) + self._normal(*x.shape) * self._uniform(1, 7, n, 1, 1, 1)
        return torch.where(self._chosen(n, share), dark, x)

    def _resolution(self, x, blur, few, noise, hard, qualities, sigma):
        self._some(x, blur, lambda p: blurred(p, self._number(0.4, sigma)))
        self._some(x, few, lambda p: few_pixels(p, int(self._number(18, 64))))
        self._some(x, few / 2, lambda p: few_pixels(p, int(self._number(50, 115))))
        x = torch.where(self._chosen(len(x), noise), x + self._normal(*x.shape) * self._uniform(2, 12, len(x), 1, 1, 1), x)
        x = torch.clamp(x, 0, 255)
        self._some(x, hard, lambda p: compressed(p, int(self._number(*qualities))))
        return x

    def _patches(self, x, share):
        """Something in front of some faces."""
        n, at = len(x), torch.arange(x.shape[-1], device=self.device)
        left, top = self._uniform(0, 90, n, 1, 1, 1), self._uniform(0, 90, n, 1, 1, 1)
        inside = ((at >= left) & (at < left + self._uniform(8, 44, n, 1, 1, 1)) &
                  (at[:, None] >= top) & (at[:, None] < top + self._uniform(8, 44, n, 1, 1, 1)))
        return torch.where(inside & self._chosen(n, share), self._uniform(0, 255, n, 3, 1, 1), x)

    def _masks(self, x, share):
        """Cloth from the nose down, its upper edge bent."""
        n, at = len(x), torch.arange(x.shape[-1], device=self.device)
        across = (at - 56) / 56
        edge = self._uniform(48, 72, n, 1, 1, 1) + self._uniform(-4, 14, n, 1, 1, 1) * across.square() + self._uniform(-4, 4, n, 1, 1, 1) * across
        return torch.where((at[:, None] > edge) & self._chosen(n, share), self._uniform(0, 255, n, 3, 1, 1), x)

    @torch.no_grad()
    def draw(self):
        n, known = self.size, self.size // 2
        which = torch.randint(len(self.images), (n,), generator=self.random, device=self.device)
        x = self.images[which].permute(0, 3, 1, 2).float()
        # Between two faces, for a half of those that the teacher is asked about.
        others = self.images[torch.randint(len(self.images), (n - known,), generator=self.random, device=self.device)]
        a = self._uniform(0.25, 0.5, n - known, 1, 1, 1) * self._chosen(n - known, 0.5)
        x[known:] = x[known:] * (1 - a) + others.permute(0, 3, 1, 2).float() * a
        x = self._colour(x)
        damaged = self._resolution(self._dark(x[:known], 0.15, 0.12, 0.5), 0.3, 0.3, 0.1, 0.3, (8, 45), 3.0)
        asked = self._resolution(self._dark(x[known:], 0.06, 0.15, 0.45), 0.15, 0.12, 0.1, 0.1, (25, 85), 2.0)
        strong = torch.where(self._uniform(0, 1, n) < 0.15, 2.0, 1.0)
        right = self._jitter(n, 1.0, 2.0, 0.03, 0.5, strong)
        off = self._jitter(n, *self.off, 0.0, torch.ones(n, device=self.device)) @ right @ self.crops[which]
        shown = warp(torch.cat([damaged, asked]), off, embedding.CROP)
        pixels = warp(asked, right[known:], embedding.CROP).round()
        of_teacher = functional.normalize(self.teacher.embed_pixels(pixels) + self.teacher.embed_pixels(pixels.flip(3)))
        if self.masked:
            shown = self._masks(shown, 0.3)
        shown = self._patches(shown, 0.15).round()
        return (shown - 127.5) / 128, torch.cat([self.answers[which[:known]], of_teacher]), which

    def __iter__(self):
        while True:
            yield self.draw()
