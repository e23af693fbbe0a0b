"""The networks, each defined once: the same layer list makes the torch module that is trained and the file that is shipped.

A layer list is a sequence of
  ("conv", name, out_channels, kernel, stride, "VALID" or "SAME")   followed by batch normalisation and PReLU
  ("dense", name, out_features)                                     followed by batch normalisation and PReLU
  ("window", name, top, left, height, width)                        only this part of the input goes on; before the first other layer
and the heads are (name, outputs, kind): kind "conv" is a 1x1 convolution, "dense" a fully connected layer, "softmax" a
fully connected layer whose output passes a softmax when shipped, and "last" the same with the softmax node named plainly
"Softmax": it ends the file, since engines that ask for no output by name get the file's last layer.
"""
import numpy as np
import torch
from torch import nn

from . import graphdef


class Definition:
    """input_size: pixels, one number for a square or (height, width)."""

    def __init__(self, input_size, layers, heads, version="5_1_0", channels=3):
        self.input_size = input_size if isinstance(input_size, tuple) else (input_size, input_size)
        self.layers, self.heads, self.version, self.channels = layers, heads, version, channels


def _face_48(*wide):
    """Layers that look at a whole face; wide: channels of the last three convolutions. A narrower network's weights fit into a
    wider one because nothing else differs."""
    return [
        ("conv", "conv1", 32, 3, 2, "VALID"),
        ("conv", "conv2", 48, 3, 1, "VALID"),
        ("conv", "conv3", wide[0], 3, 2, "VALID"),
        ("conv", "conv4", wide[1], 3, 1, "VALID"),
        ("conv", "conv5", wide[2], 3, 2, "VALID"),
        ("dense", "fc", 256),
    ]


DEFINITIONS = {
    # Every convolution but the last is VALID, so that output cell (r, c) is centred on pixel (12 + 4c, 12 + 4r), the
    # centre of its anchors; up to conv4 it sees exactly the 24 x 24 window of the largest anchor, the SAME
    # convolution behind adds four pixels of surroundings on each side without moving the centre.
    "FaceDetectP": Definition(24, [
        ("conv", "conv1", 12, 4, 2, "VALID"),
        ("conv", "conv2", 18, 3, 2, "VALID"),
        ("conv", "conv3", 22, 3, 1, "VALID"),
        ("conv", "conv4", 22, 3, 1, "VALID"),
        ("conv", "conv5", 24, 3, 1, "SAME"),
    ], [("conv5_1", 8, "conv"), ("conv5_2", 16, "conv")]),
    # Runs on every proposal, so its first layer halves the size at once: most of a frame's time is spent here.
    "FaceDetectR": Definition(24, [
        ("conv", "conv1", 24, 3, 2, "VALID"),
        ("conv", "conv2", 32, 3, 1, "VALID"),
        ("conv", "conv3", 64, 3, 2, "VALID"),
        ("dense", "fc", 112),
    ], [("cls_fc", 2, "softmax"), ("bbox_fc", 4, "dense")]),
    # Wider in the later layers, where it costs little: the last word on every box is this network's.
    "FaceDetectO": Definition(48, _face_48(80, 96, 128), [("cls_fc", 2, "softmax"), ("bbox_fc", 4, "dense"), ("landmark_fc", 10, "dense")]),
    # Both look at the whole face in 48 x 48 as FaceDetectO does, and have the layers that it had before it was widened.
    "FaceMaskAlign": Definition(48, _face_48(64, 64, 96), [("landmark_fc", 4, "dense")]),
    "FaceMaskDetect": Definition(48, _face_48(64, 64, 96), [("mask_fc", 2, "last")]),
    # Blur shows in neighbouring pixels only, and there are few of them: the first layer keeps every one.
    "FaceQuality": Definition(24, [
        ("conv", "conv1", 20, 3, 1, "VALID"),
        ("conv", "conv2", 32, 3, 2, "VALID"),
        ("conv", "conv3", 48, 3, 1, "VALID"),
        ("conv", "conv4", 64, 3, 2, "VALID"),
        ("dense", "fc", 88),
    ], [("softmax", 2, "softmax")], version="5_0_0"),
    # What is around the face tells where the camera stands and not what stands before it: the network sees the face alone. It stays at
    # the resolution that the window has: there are few pixels, and what tells an attack is fine.
    "LiveDetect_RGB": Definition(112, [
        ("window", "face", 28, 20, 80, 72),
        ("conv", "conv1", 20, 4, 2, "VALID"),
        ("conv", "conv2", 28, 3, 2, "VALID"),
        ("conv", "conv3", 36, 3, 1, "VALID"),
        ("conv", "conv4", 44, 3, 2, "VALID"),
        ("conv", "conv5", 48, 3, 1, "VALID"),
        ("conv", "conv6", 56, 3, 1, "VALID"),
        ("dense", "fc", 48),
    ], [("live_fc", 2, "last")], version="5_0_0"),
    # One channel: the engine hands over the grey part of the crop with eyes and nose.
    "LiveDetect_NIR": Definition((64, 80), [
        ("conv", "conv1", 16, 4, 2, "VALID"),
        ("conv", "conv2", 32, 3, 1, "VALID"),
        ("conv", "conv3", 48, 3, 2, "VALID"),
        ("conv", "conv4", 64, 3, 1, "VALID"),
        ("conv", "conv5", 96, 3, 2, "VALID"),
        ("conv", "conv6", 96, 3, 1, "VALID"),
        ("dense", "fc", 128),
    ], [("live_fc", 2, "last")], channels=1),
}


def file_name(name):
    return f"VELDAN_V{DEFINITIONS[name].version}_{name}.pb"


class Network(nn.Module):
    """Returns one tensor a head, softmax heads as logits. Input: (pixel - 127.5) / 128, blue, green, red."""

    def __init__(self, name):
        super().__init__()
        self.definition = DEFINITIONS[name]
        self.blocks = nn.ModuleDict()
        channels, size, flat = self.definition.channels, self.definition.input_size, False
        for layer in self.definition.layers:
            if layer[0] == "window":
                size = layer[4:]
            elif layer[0] == "conv":
                _, block, out, kernel, stride, padding = layer
                pad = (kernel - 1) // 2 if padding == "SAME" else 0
                self.blocks[block] = nn.Sequential(nn.Conv2d(channels, out, kernel, stride, pad, bias=False),
                                                   nn.BatchNorm2d(out), nn.PReLU(out, 0.25))
                channels, size = out, tuple((s + 2 * pad - kernel) // stride + 1 for s in size)
            else:
                _, block, out = layer
                inputs = channels if flat else channels * size[0] * size[1]
                self.blocks[block] = nn.Sequential(nn.Linear(inputs, out, bias=False), nn.BatchNorm1d(out), nn.PReLU(out, 0.25))
                channels, flat = out, True
        self.map_size = size
        # Training in bfloat16 more than halves the time of a step on processors that have it; the heads, whose answers
        # are measured in hundredths, stay in single precision.
        self.bfloat16 = False
        self.heads = nn.ModuleDict({
            head: nn.Conv2d(channels, out, 1) if kind == "conv"
            else nn.Linear(channels if flat else channels * size[0] * size[1], out)
            for head, out, kind in self.definition.heads})

    def forward(self, x, before_dense=None):
        """before_dense: what training does to the features in front of the first dense layer."""
        x = x.contiguous(memory_format=torch.channels_last)
        with torch.autocast("cpu", dtype=torch.bfloat16, enabled=self.bfloat16 and self.training):
            for layer in self.definition.layers:
                if layer[0] == "window":
                    _, _, top, left, height, width = layer
                    x = x[:, :, top:top + height, left:left + width]
                    continue
                if layer[0] == "dense" and x.dim() == 4:
                    x = x.flatten(1)
                    x = before_dense(x) if before_dense else x
                x = self.blocks[layer[1]](x)
        x = x.float()
        return [self.heads[head](x) for head, _, _ in self.definition.heads]


def fold(linear, norm):
    """Batch normalisation folded into the weights in front of it."""
    w = linear.weight.detach().double()
    scale = norm.weight.detach().double() / torch.sqrt(norm.running_var.double() + norm.eps)
    folded = w * scale.view(-1, *[1] * (w.dim() - 1))
    return folded.float().numpy(), (norm.bias.detach().double() - norm.running_mean.double() * scale).float().numpy()


def export(network, logit_shift=None):
    """The shipped file's bytes. logit_shift {head: face logit offset} calibrates a softmax or proposal head's score."""
    network.eval()
    g = graphdef.GraphWriter()
    x = g.placeholder("input_image")
    channels, flat = network.definition.channels, False

    def dense_weight(weight):
        # The reader keeps its maps as height, width, channel where they are flattened; torch as channel, height, width.
        if flat:
            return weight
        maps = weight.reshape(-1, channels, *network.map_size)
        return np.ascontiguousarray(maps.transpose(0, 2, 3, 1).reshape(weight.shape[0], -1))

    for layer in network.definition.layers:
        if layer[0] == "window":
            x = g.window(layer[1], x, *layer[2:])
            continue
        linear, norm, prelu = network.blocks[layer[1]]
        weight, bias = fold(linear, norm)
        if layer[0] == "conv":
            x = g.conv(layer[1], x, weight, bias, layer[4], layer[5])
        else:
            if not flat:
                x = g.flatten("flatten", x, weight.shape[1])
            x = g.dense(layer[1], x, dense_weight(weight), bias)
            flat = True
        channels = layer[2]
        x = g.prelu(f"{layer[1]}/prelu", x, prelu.weight.detach().numpy())
    for head, _, kind in network.definition.heads:
        linear = network.heads[head]
        weight, bias = linear.weight.detach().numpy(), linear.bias.detach().numpy().copy()
        if logit_shift and head in logit_shift:
            bias[1::2] += logit_shift[head]
        if kind == "conv":
            g.conv(head, x, weight, bias, 1, "VALID")
        else:
            y = g.dense(head, x, dense_weight(weight), bias)
            if kind in SOFTMAX:
                g.softmax(_output_name(head, kind), y)
    return g.tobytes()


SOFTMAX = ("softmax", "last")
OUTPUT_SUFFIX = {"conv": "Conv2D", "dense": "MatMul", "softmax": "Softmax"}


def _output_name(head, kind):
    return "Softmax" if kind == "last" else f"{head}/{OUTPUT_SUFFIX[kind]}"


def output_names(name):
    return [_output_name(head, kind) for head, _, kind in DEFINITIONS[name].heads]


def check_export(name, network, data, logit_shift=None, sizes=None):
    """Runs the file in OpenCV's reader beside the trained module; returns the largest error relative to the output's range."""
    import cv2
    reader = cv2.dnn.readNetFromTensorflow(np.frombuffer(data, np.uint8))
    rng, worst = np.random.default_rng(7), 0.0
    side, kinds = network.definition.input_size, [kind for _, _, kind in network.definition.heads]
    for batch, h, w in sizes or [(3, *side), (1, *side)]:
        x = rng.uniform(-1, 1, (batch, network.definition.channels, h, w)).astype(np.float32)
        reader.setInput(x, "input_image")
        got = reader.forward(output_names(name))
        if "last" in kinds:
            # Without names, as the liveness engines ask.
            reader.setInput(x, "")
            got = list(got) + [reader.forward()]
        network.eval()
        with torch.no_grad():
            want = network(torch.from_numpy(x))
        heads = network.definition.heads
        if "last" in kinds:
            heads, want = heads + heads[-1:], want + want[-1:]
        for (head, _, kind), a, b in zip(heads, got, want):
            if logit_shift and head in logit_shift:
                b = b.clone()
                b[:, 1::2] += logit_shift[head]
            b = (torch.softmax(b, 1) if kind in SOFTMAX else b).numpy()
            if a.shape != b.shape:
                raise RuntimeError(f"{name} {head}: shape {a.shape}, expected {b.shape}")
            worst = max(worst, float(np.abs(a - b).max() / max(np.abs(b).max(), 1e-6)))
    if worst > 1e-4:
        raise RuntimeError(f"{name}: the exported file differs from the trained network by {worst:.2e}")
    return worst
