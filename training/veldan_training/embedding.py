"""The networks that turn an aligned face into 128 numbers, defined once for training and for the shipped Caffe files.

A thin residual network of plain 3 x 3 convolutions: depthwise layers, the usual choice at this size, are what a processor
without an accelerator is slow at. Few channels where the maps are large, because there a convolution is limited by memory;
multiples of 16 everywhere, because vector registers are.

Two kinds of blocks. A residual one adds its input to two convolutions. A branched one is trained as three branches, a 3 x 3 and a
1 x 1 convolution and the input itself, each with batch normalisation; all three are linear, so that a single 3 x 3 convolution
is shipped. It costs half of a residual block, without the sum, and a network twice as deep can still be trained.
"""
import numpy as np
import torch
from torch import nn

from . import caffe, networks

FEATURES = 128
CROP = 112
# The engine paints the crop's rows from here on grey before the masked network sees it.
PAINTED_FROM = 56


class Definition:
    """stages: (channels, blocks); each stage halves the size first. A block of a residual stage is its channels inside, of a branched
    one nothing but a block, so that their number is given. rows: how many of the crop's rows are looked at. mirrored: in
    use, the answer is the mean over the crop and its mirror image; training sees either alone."""

    def __init__(self, name, version, output, stages, rows=CROP, stem=16, wide=256, mirrored=False):
        self.name, self.version, self.output, self.rows, self.mirrored = name, version, output, rows, mirrored
        self.stem, self.stages, self.wide = stem, stages, wide


def bare(stages, **changes):
    return Definition("FaceRecog", "5_0_0", "fc1_scale", stages, **changes)


def masked(stages, **changes):
    return Definition("FaceMaskRecog", "5_2_0", "pre_fc1", stages, rows=PAINTED_FROM, **changes)


# Of each network the shape that is shipped, then others to choose from.
SHAPES = {
    # A block on the 14 x 14 maps tells more than the same weights on 7 x 7; the last two are narrow so that the file stays small.
    "FaceRecog": {"residual": bare(((48, (48,)), (96, (96, 96)), (128, (96, 80)))),
                  "deep": bare(((48, 1), (96, 10), (160, 2)), wide=384)},
    # The painted half says nothing: it is cut off first, and the work goes twice into the other half: into the mirror image, or into
    # more blocks.
    "FaceMaskRecog": {"residual": masked(((48, (48,)), (96, (96,)), (128, (128, 128))), wide=192, mirrored=True),
                      "deep": masked(((48, 2), (96, 14), (160, 4)), wide=384)},
}


def _unit(inputs, outputs, kernel, stride=1, groups=1):
    pad = 1 if kernel == 3 else 0
    return nn.Sequential(nn.Conv2d(inputs, outputs, kernel, stride, pad, groups=groups, bias=False), nn.BatchNorm2d(outputs))


class Branches(nn.Module):
    """What folded() makes one 3 x 3 convolution of."""

    def __init__(self, inputs, outputs, stride=1):
        super().__init__()
        self.three, self.one = _unit(inputs, outputs, 3, stride), _unit(inputs, outputs, 1, stride)
        self.same = nn.BatchNorm2d(outputs) if inputs == outputs and stride == 1 else None

    def forward(self, x):
        y = self.three(x) + self.one(x)
        return y if self.same is None else y + self.same(x)

    def folded(self):
        """(weight, bias)"""
        weight, bias = (v.astype(np.float64) for v in networks.fold(*self.three))
        one, its_bias = networks.fold(*self.one)
        weight[:, :, 1, 1] += one[:, :, 0, 0]
        bias += its_bias
        if self.same is not None:
            n = self.same
            scale = n.weight.detach().double() / torch.sqrt(n.running_var.double() + n.eps)
            weight[:, :, 1, 1] += np.diag(scale.numpy())
            bias += (n.bias.detach().double() - n.running_mean.double() * scale).numpy()
        return weight.astype(np.float32), bias.astype(np.float32)


def folded(unit):
    return unit.folded() if isinstance(unit, Branches) else networks.fold(*unit)


class Network(nn.Module):
    """Input: n x 3 x 112 x 112, (pixel - 127.5) / 128, red, green, blue. Output: n x 128, not normalised."""

    def __init__(self, definition):
        super().__init__()
        d = self.definition = definition
        self.units = nn.ModuleDict({"conv1": _unit(3, d.stem, 3, 2)})
        self.order = [("conv", "conv1")]
        channels, size = d.stem, np.array([d.rows, CROP]) // 2
        for s, (out, blocks) in enumerate(d.stages, 2):
            branched = isinstance(blocks, int)
            self.units[f"conv{s}"] = Branches(channels, out, 2) if branched else _unit(channels, out, 3, 2)
            self.order.append(("conv", f"conv{s}"))
            channels, size = out, (size + 1) // 2
            if branched:
                for b in range(1, blocks + 1):
                    self.units[f"conv{s}_{b}"] = Branches(channels, channels)
                    self.order.append(("conv", f"conv{s}_{b}"))
                continue
            for b, inside in enumerate(blocks, 1):
                self.units[f"conv{s}_{b}a"] = _unit(channels, inside, 3)
                self.units[f"conv{s}_{b}b"] = _unit(inside, channels, 3)
                self.order.append(("block", f"conv{s}_{b}"))
        self.units["wide"] = _unit(channels, d.wide, 1)
        self.order.append(("conv", "wide"))
        # One weight a place and channel, where an average would forget where in the face something was seen.
        self.units["pool"] = _unit(d.wide, d.wide, tuple(int(s) for s in size), groups=d.wide)
        self.fc = nn.Linear(d.wide, FEATURES)
        self.bfloat16 = False

    def _pool(self, x):
        """As the depthwise convolution over the whole map, whose gradient is slow to compute."""
        convolution, norm = self.units["pool"]
        weight = convolution.weight[:, 0].permute(1, 2, 0).contiguous().to(x.dtype)
        x = (x.permute(0, 2, 3, 1) * weight).flatten(1, 2).sum(1).float()
        return norm(x[:, :, None, None]).flatten(1)

    def forward(self, x):
        x = x[:, :, :self.definition.rows]
        both = self.definition.mirrored and not self.training
        x = (torch.cat([x, x.flip(3)]) if both else x).contiguous(memory_format=torch.channels_last)
        with torch.autocast(x.device.type, dtype=torch.bfloat16, enabled=self.bfloat16 and self.training):
            for kind, name in self.order:
                if kind == "conv":
                    x = torch.relu_(self.units[name](x))
                else:
                    inner = self.units[f"{name}b"](torch.relu_(self.units[f"{name}a"](x)))
                    x = torch.relu_(inner + x)
            x = self._pool(x)
        return self.fc(torch.stack(x.chunk(2)).mean(0) if both else x.float())


def base_name(definition):
    return f"VELDAN_V{definition.version}_{definition.name}"


def cost(definition):
    """(multiplications of one answer in millions, weights of the shipped file in millions)"""
    network, products = Network(definition), 0
    size = np.array([definition.rows, CROP])
    for _, name in network.order:
        for unit in ([network.units[name]] if name in network.units else [network.units[f"{name}a"], network.units[f"{name}b"]]):
            convolution = unit.three[0] if isinstance(unit, Branches) else unit[0]
            size = -(-size // convolution.stride[0])
            products += convolution.weight.numel() * int(size.prod())
    pool = network.units["pool"][0].weight.numel()
    products = (products + pool) * (2 if definition.mirrored else 1) + network.fc.weight.numel()
    shipped = sum(p.numel() for n, p in network.named_parameters() if ".one." not in n and ".same." not in n)
    return products / 1e6, shipped / 1e6


def export(network):
    """(weights, text) of the shipped network, batch normalisation folded in."""
    network.eval()
    d = network.definition
    n = caffe.NetWriter(d.name)
    x = n.input("data", (1, 3, CROP, CROP))
    if d.rows < CROP:
        x = n.upper_rows("upper", x, d.rows)
    if d.mirrored:
        x = n.batch("both", x, n.mirrored("mirror", x, CROP))

    def unit(name, x):
        unit = network.units[name]
        convolution = unit.three[0] if isinstance(unit, Branches) else unit[0]
        return n.conv(name, x, *folded(unit), convolution.stride[0], convolution.padding[0], convolution.groups)

    for kind, name in network.order:
        if kind == "conv":
            x = n.relu(f"{name}_relu", unit(name, x))
        else:
            inner = unit(f"{name}b", n.relu(f"{name}a_relu", unit(f"{name}a", x)))
            x = n.relu(f"{name}_relu", n.add(f"{name}_sum", inner, x))
    x = unit("pool", x)
    if d.mirrored:
        x = n.mean_of_batch("mean", x)
    n.dense(d.output, x, network.fc.weight.detach().numpy(), network.fc.bias.detach().numpy())
    return n.weights(), n.text()


def check_export(network, weights, text):
    """Runs the files in OpenCV's reader beside the trained module; returns the largest error relative to the output's range."""
    import cv2
    reader = cv2.dnn.readNetFromCaffe(np.frombuffer(text, np.uint8), np.frombuffer(weights, np.uint8))
    worst = 0.0
    for seed in range(3):
        x = np.random.default_rng(seed).uniform(-1, 1, (1, 3, CROP, CROP)).astype(np.float32)
        reader.setInput(x, "")
        got = reader.forward(network.definition.output)
        with torch.no_grad():
            want = network(torch.from_numpy(x)).numpy()
        if got.shape != want.shape:
            raise RuntimeError(f"shape {got.shape}, expected {want.shape}")
        worst = max(worst, float(np.abs(got - want).max() / np.abs(want).max()))
    if worst > 1e-4:
        raise RuntimeError(f"the exported files differ from the trained network by {worst:.2e}")
    return worst
