"""Needs the built library: VELDAN_LIBRARY, or the release build's."""
import ctypes
import os
import pathlib
import sys

import cv2
import pytest
import torch

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "training"))
torch.set_num_threads(1)
cv2.setNumThreads(1)


@pytest.fixture(scope="session")
def library():
    return ctypes.CDLL(os.environ.get("VELDAN_LIBRARY", str(ROOT / "build/release/src/libveldan.so")))


@pytest.fixture
def randomised():
    """Makes a network's weights, statistics and slopes random, so that none of them can be forgotten unseen."""
    def fill(network, seed=5):
        torch.manual_seed(seed)
        with torch.no_grad():
            for name, tensor in network.state_dict().items():
                if name.endswith("running_var"):
                    tensor.uniform_(0.5, 2.0)
                elif tensor.dim() == 1 and tensor.is_floating_point():
                    tensor.uniform_(0.1, 0.9)
                elif tensor.dim() > 1:
                    tensor.normal_(0, (2 / tensor[0].numel()) ** 0.5)
        return network.eval()
    return fill
