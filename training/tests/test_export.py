"""The shipped formats compute what the trained modules computed, read by OpenCV as the library reads them."""
import cv2
import numpy as np
import pytest
import torch

from conftest import ROOT
from veldan_training import embedding, networks, weights

MOVED = 0.7


def answers(network, x):
    with torch.no_grad():
        return network(torch.from_numpy(x))


def sample(shape):
    return np.random.default_rng(3).uniform(-1, 1, shape).astype(np.float32)


@pytest.mark.parametrize("name", networks.DEFINITIONS)
def test_graph_computes_what_the_module_does(name, randomised):
    network = randomised(networks.Network(name))
    heads = network.definition.heads
    moved = [head for head, _, kind in heads if kind in ("conv", *networks.SOFTMAX)][0:1]
    x = sample((2, network.definition.channels, *network.definition.input_size))
    reader = cv2.dnn.readNetFromTensorflow(np.frombuffer(networks.export(network, {head: np.float32(MOVED) for head in moved}), np.uint8))
    reader.setInput(x, "input_image")
    got = reader.forward(networks.output_names(name))
    assert len(got) == len(heads)
    for (head, _, kind), answer, y in zip(heads, got, answers(network, x)):
        if head in moved:  # the second of each pair, and nothing else
            y[:, 1::2] += MOVED
        want = torch.softmax(y, 1) if kind in networks.SOFTMAX else y
        np.testing.assert_allclose(answer, want.numpy(), atol=2e-5 * float(want.abs().max()), err_msg=head)


@pytest.mark.parametrize("name, shape", [(name, shape) for name, shapes in embedding.SHAPES.items() for shape in shapes])
def test_caffe_files_compute_what_the_module_does(name, shape, randomised):
    network = randomised(embedding.Network(embedding.SHAPES[name][shape]))
    x = sample((1, 3, embedding.CROP, embedding.CROP))
    data, text = embedding.export(network)
    reader = cv2.dnn.readNetFromCaffe(np.frombuffer(text, np.uint8), np.frombuffer(data, np.uint8))
    reader.setInput(x, "data")
    want = answers(network, x).numpy()
    np.testing.assert_allclose(reader.forward(network.definition.output), want, atol=2e-5 * np.abs(want).max())


@pytest.mark.parametrize("inputs, outputs, stride", [(8, 8, 1), (8, 12, 1), (8, 8, 2)])
def test_branches_are_one_convolution(inputs, outputs, stride, randomised):
    branches, x = randomised(embedding.Branches(inputs, outputs, stride)), torch.randn(2, inputs, 15, 14)
    weight, bias = (torch.from_numpy(v) for v in branches.folded())
    with torch.no_grad():
        torch.testing.assert_close(torch.conv2d(x, weight, bias, stride, 1), branches(x), rtol=1e-4, atol=1e-5)


@pytest.mark.parametrize("name", embedding.SHAPES)
def test_weights_behind_the_shipped_recognizers_can_be_exported(name):
    network = embedding.Network(embedding.SHAPES[name]["residual"])
    network.load_state_dict(weights.read(ROOT / f"training/weights/{name}.checkpoint"))
    network.eval()
    assert embedding.check_export(network, *embedding.export(network)) < 1e-4


def test_a_file_of_another_network_is_noticed(randomised):
    quality = randomised(networks.Network("FaceQuality"))
    data = networks.export(quality)
    assert networks.check_export("FaceQuality", quality, data) < 1e-5
    with torch.no_grad():
        quality.heads["softmax"].bias[0] += 0.01
    with pytest.raises(RuntimeError, match="differs"):
        networks.check_export("FaceQuality", quality, data)
    recognizer = randomised(embedding.Network(embedding.SHAPES["FaceRecog"]["residual"]))
    files = embedding.export(recognizer)
    with torch.no_grad():
        recognizer.fc.bias[0] += 1
    with pytest.raises(RuntimeError, match="differ"):
        embedding.check_export(recognizer, *files)
