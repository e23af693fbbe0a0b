"""The recognizer that the networks learn from. A training aid: nothing of it is shipped."""
import json

import numpy as np
import torch
from torch import nn

# Small batches stay in the processor's cache.
BATCH = 16


class Teacher(nn.Module):
    """Reads DATA/teacher/recognizer.json, the list of layers, and recognizer.npz, their weights."""

    def __init__(self, data, single=False):
        super().__init__()
        with open(f"{data}/teacher/recognizer.json") as f:
            description = json.load(f)
        weights = np.load(f"{data}/teacher/recognizer.npz")
        self.layers, self.convolutions = description["layers"], nn.ModuleList()
        for layer in self.layers:
            out, inputs, *kernel = layer["shape"]
            c = nn.Conv2d(inputs * layer["groups"], out, tuple(kernel), layer["stride"], layer["pad"], groups=layer["groups"])
            c.weight.data = torch.from_numpy(weights[layer["name"] + ".weight"].astype(np.float32))
            c.bias.data = torch.from_numpy(weights[layer["name"] + ".bias"].astype(np.float32))
            self.convolutions.append(c)
        self.register_buffer("mean", torch.tensor(description["input"]["mean"]).view(1, 3, 1, 1) * 255)
        self.register_buffer("std", torch.tensor(description["input"]["std"]).view(1, 3, 1, 1) * 255)
        # bfloat16 changes its embeddings by a cosine of 0.002 and makes it four times as fast.
        self.type = torch.float32 if single else torch.bfloat16
        self.convolutions.to(self.type).to(memory_format=torch.channels_last)
        self.eval()

    def _forward(self, x):
        saved = None
        for layer, convolution in zip(self.layers, self.convolutions):
            if layer.get("save_input"):
                saved = x
            x = convolution(x)
            if layer.get("add_saved"):
                x = x + saved
            if layer["activation"] == "relu6":
                x = torch.clamp(x, 0, 6)
            elif layer["activation"] == "relu":
                x = torch.relu(x)
        return x.flatten(1).float()

    @property
    def device(self):
        return self.mean.device

    @torch.no_grad()
    def embed_pixels(self, x):
        """x: n x 3 x 112 x 112, 0 to 255, red, green, blue, on the teacher's device. Returns n x 128 of length one."""
        x = ((x - self.mean) / self.std).to(self.type)
        return nn.functional.normalize(self._forward(x.contiguous(memory_format=torch.channels_last)))

    def embed(self, crops):
        """crops: n x 112 x 112 x 3 bytes. Returns n x 128 of length one, in main memory."""
        size = BATCH if self.device.type == "cpu" else 64 * BATCH
        return torch.cat([self.embed_pixels(part.to(self.device).permute(0, 3, 1, 2).float()).cpu()
                          for part in torch.from_numpy(np.ascontiguousarray(crops)).split(size)])
