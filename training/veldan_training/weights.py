"""The file from which a later training goes on: the network alone, its large tensors in half precision.

What the optimiser knew is worth little to a new schedule and three times as large. A run's own checkpoint in WORK has both, and is read here
as well."""
import os

import torch

LARGEST = 65504.0  # of half precision


def _compact(tensor):
    # Biases, normalisations and slopes are few, and every answer depends on each of them: they stay as they are.
    return tensor.half() if tensor.dim() > 1 and tensor.abs().max() <= LARGEST else tensor


def read(path):
    """{name: tensor in single precision} out of either form."""
    state = torch.load(path, map_location="cpu")["network"]
    return {name: tensor.float() if tensor.dtype == torch.float16 else tensor for name, tensor in state.items()}


def keep(folder, name, network):
    """Writes FOLDER/NAME.checkpoint and rounds the network to what stands there: what is calibrated and exported next is exactly
    what a later run finds."""
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, f"{name}.checkpoint")
    torch.save({"network": {k: _compact(v.detach()) for k, v in network.state_dict().items()}}, path + ".part")
    os.replace(path + ".part", path)
    network.load_state_dict(read(path))
    print(f"{path}: {os.path.getsize(path)} bytes")
