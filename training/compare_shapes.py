#!/usr/bin/env python3
"""What recognizers of several shapes cost, untrained: training/compare_shapes.py. Milliseconds of one answer in OpenCV on one thread
beside a MobileFaceNet in the same run (the shapes take turns; the time that a fifth of the answers stay
below, since others may use the machine), multiplications, weights, training steps a second."""
import argparse
import time

import cv2
import numpy as np
import torch

from veldan_training import caffe, embedding

bare, masked = embedding.bare, embedding.masked
SHAPES = {
    "as shipped": embedding.SHAPES["FaceRecog"]["residual"],
    "48 x 2, 96 x 10, 160 x 2": bare(((48, 2), (96, 10), (160, 2)), wide=384),
    "48 x 1, 96 x 10, 160 x 2": bare(((48, 1), (96, 10), (160, 2)), wide=384),
    "48 x 1, 96 x 8, 160 x 3": bare(((48, 1), (96, 8), (160, 3)), wide=384),
    "48 x 2, 112 x 7, 160 x 2": bare(((48, 2), (112, 7), (160, 2)), wide=384),
    "48 x 2, 128 x 5, 160 x 2": bare(((48, 2), (128, 5), (160, 2)), wide=384),
    "64 x 1, 96 x 9, 160 x 2": bare(((64, 1), (96, 9), (160, 2)), wide=384),
    "residual 48 x 1, 96 x 4, 160 x 3": bare(((48, (48,)), (96, (96,) * 4), (160, (128,) * 3)), wide=384),
    "masked as shipped": embedding.SHAPES["FaceMaskRecog"]["residual"],
    "masked 64 x 2, 128 x 10, 160 x 2": masked(((64, 2), (128, 10), (160, 2)), wide=384),
    "masked 48 x 2, 96 x 14, 160 x 4": masked(((48, 2), (96, 14), (160, 4)), wide=384),
}


def mobilefacenet():
    """Of the published shape, batch normalisation folded in; the same as the one in bench/speed."""
    n, rng, channels, count = caffe.NetWriter("MobileFaceNet"), np.random.default_rng(1), 3, 0
    x = n.input("data", (1, 3, embedding.CROP, embedding.CROP))

    def unit(x, outputs, kernel, stride=1, depthwise=False, slopes=True, pad=None):
        nonlocal channels, count
        count += 1
        groups = channels if depthwise else 1
        weight = rng.normal(0, 0.1, (outputs, channels // groups, kernel, kernel))
        x = n.conv(f"conv{count}", x, weight, np.zeros(outputs), stride, kernel // 2 if pad is None else pad, groups)
        channels = outputs
        return n.prelu(f"prelu{count}", x, np.full(outputs, 0.25)) if slopes else x

    x = unit(unit(x, 64, 3, 2), 64, 3, depthwise=True)
    for repeat, outputs, expansion, first in ((5, 64, 2, 2), (1, 128, 4, 2), (6, 128, 2, 1), (1, 128, 4, 2), (2, 128, 2, 1)):
        for i in range(repeat):
            stride, before = first if i == 0 else 1, x
            wide, same = (channels if stride == 2 else outputs) * expansion, stride == 1 and channels == outputs
            y = unit(unit(unit(x, wide, 1), wide, 3, stride, depthwise=True), outputs, 1, slopes=False)
            x = n.add(f"sum{count}", y, before) if same else y
    x = unit(unit(unit(x, 512, 1), 512, 7, depthwise=True, slopes=False, pad=0), 128, 1, slopes=False)
    return n.weights(), n.text()


def reader(files):
    weights, text = files
    return cv2.dnn.readNetFromCaffe(np.frombuffer(text, np.uint8), np.frombuffer(weights, np.uint8))


def milliseconds(nets, seconds):
    x = np.random.default_rng(2).uniform(-1, 1, (1, 3, embedding.CROP, embedding.CROP)).astype(np.float32)
    times, end = {name: [] for name in nets}, time.time() + seconds
    while time.time() < end:
        for name, net in nets.items():
            net.setInput(x)
            net.forward()  # the others' weights leave the cache
            for _ in range(3):
                started = time.perf_counter()
                net.setInput(x)
                net.forward()
                times[name].append(1e3 * (time.perf_counter() - started))
    return {name: float(np.quantile(t, 0.2)) for name, t in times.items()}


def steps_a_second(network, batch, seconds):
    """Of 128 crops, computed in parts of `batch`."""
    network.train()
    network.bfloat16 = True
    x, done, started = torch.randn(batch, 3, embedding.CROP, embedding.CROP), 0, None
    while started is None or time.perf_counter() - started < seconds:
        network(x).square().mean().backward()
        if started is None:  # the first round sets everything up
            started = time.perf_counter()
        else:
            done += 1
    return done * batch / 128 / (time.perf_counter() - started)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=40, help="of forward passes (default: %(default)s)")
    parser.add_argument("--training", type=float, default=4, help="seconds of training each, 0 for none (default: %(default)s)")
    args = parser.parse_args()
    torch.set_num_threads(1)
    cv2.setNumThreads(1)
    torch.manual_seed(1)
    networks = {name: embedding.Network(d) for name, d in SHAPES.items()}
    took = milliseconds({"MobileFaceNet": reader(mobilefacenet()),
                         **{name: reader(embedding.export(n)) for name, n in networks.items()}}, args.seconds)
    print("| shape | million multiplications | million weights | ms | MobileFaceNet takes | steps a second |\n|---|---|---|---|---|---|")
    print(f"| MobileFaceNet | | | {took['MobileFaceNet']:.2f} | | |", flush=True)
    for name, n in networks.items():
        products, weights = embedding.cost(n.definition)
        print(f"| {name} | {products:.0f} | {weights:.2f} | {took[name]:.2f} | {took['MobileFaceNet'] / took[name]:.2f} times as long | "
              f"{f'{steps_a_second(n, 64, args.training):.2f}' if args.training else ''} |", flush=True)


if __name__ == "__main__":
    main()
