"""The networks that turn an aligned face into 128 numbers, defined once for training and for the shipped Caffe files.

A thin residual network of plain 3 x 3 convolutions: depthwise layers, the usual choice at this size, are what a processor
without an accelerator is slow at. Few channels where the maps are large, because there a convolution is limited by memory;
multiples of 16 everywhere, because vector registers are.
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
    """stages: (channels, channels inside each residual block); each stage halves the size first. rows: how many of the crop's rows
    are looked at. mirrored: in use, the answer is the mean over the crop and its mirror image; training sees either alone."""

    def __init__(self, name, version, output, stages, rows=CROP, stem=16, wide=256, mirrored=False):
        self.name, self.version, self.output, self.rows, self.mirrored = name, version, output, rows, mirrored
        self.stem, self.stages, self.wide = stem, stages, wide


DEFINITIONS = {
    # A block on the 14 x 14 maps tells more than the same weights on 7 x 7; the last two are narrow so that the file stays small.
    "FaceRecog": Definition("FaceRecog", "5_0_0", "fc1_scale", ((48, (48,)), (96, (96, 96)), (128, (96, 80)))),
    # The painted half says nothing: it is cut off first, and the work goes twice into the other half.
    "FaceMaskRecog": Definition("FaceMaskRecog", "5_2_0", "pre_fc1", ((48, (48,)), (96, (96,)), (128, (128, 128))),
                                rows=PAINTED_FROM, wide=192, mirrored=True),
}


def _unit(inputs, outputs, kernel, stride=1, groups=1):
    pad = 1 if kernel == 3 else 0
    return nn.Sequential(nn.Conv2d(inputs, outputs, kernel, stride, pad, groups=groups, bias=False), nn.BatchNorm2d(outputs))


class Network(nn.Module):
    """Input: n x 3 x 112 x 112, (pixel - 127.5) / 128, red, green, blue. Output: n x 128, not normalised."""

    def __init__(self, name):
        super().__init__()
        d = self.definition = DEFINITIONS[name]
        self.units = nn.ModuleDict({"conv1": _unit(3, d.stem, 3, 2)})
        self.order = [("conv", "conv1")]
        channels, size = d.stem, np.array([d.rows, CROP]) // 2
        for s, (out, blocks) in enumerate(d.stages, 2):
            self.units[f"conv{s}"] = _unit(channels, out, 3, 2)
            self.order.append(("conv", f"conv{s}"))
            channels, size = out, (size + 1) // 2
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
        with torch.autocast("cpu", dtype=torch.bfloat16, enabled=self.bfloat16 and self.training):
            for kind, name in self.order:
                if kind == "conv":
                    x = torch.relu_(self.units[name](x))
                else:
                    inner = self.units[f"{name}b"](torch.relu_(self.units[f"{name}a"](x)))
                    x = torch.relu_(inner + x)
            x = self._pool(x)
        return self.fc(torch.stack(x.chunk(2)).mean(0) if both else x.float())


def base_name(name):
    return f"VELDAN_V{DEFINITIONS[name].version}_{name}"


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
        convolution = network.units[name][0]
        weight, bias = networks.fold(*network.units[name])
        return n.conv(name, x, weight, bias, convolution.stride[0], convolution.padding[0], convolution.groups)

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
