"""Last step of every training run: calibrate the score, write the network file and the answers that the library must reproduce."""
import json
import os

import numpy as np
import torch

from . import calibration, cascade, embedding, networks, photos

SCORE_HEAD = {"FaceDetectP": "conv5_1", "FaceDetectR": "cls_fc", "FaceDetectO": "cls_fc", "FaceMaskDetect": "mask_fc",
              "LiveDetect_RGB": "live_fc", "LiveDetect_NIR": "live_fc"}
# What the library, or for liveness its documentation, compares the second class's probability with.
LIBRARY_THRESHOLD = {"FaceDetectP": cascade.PROPOSAL, "FaceDetectR": cascade.REFINE, "FaceDetectO": cascade.OUTPUT,
                     "FaceMaskDetect": 0.41, "LiveDetect_RGB": 0.5, "LiveDetect_NIR": 0.5}


def read(folder, name):
    with open(os.path.join(folder, networks.file_name(name)), "rb") as f:
        return f.read()


def operating_score(args, network, trainer):
    """The uncalibrated score that is to become the library's threshold, from the development photos."""
    if hasattr(trainer, "operating_score"):
        score = trainer.operating_score(args, network)
        if args.score:
            print(f"score {args.score} given instead of {score:.3f}")
        return args.score or score
    if args.score:
        return args.score
    development = photos.load(args.data, "train", subset="development")
    data = networks.export(network)
    if args.network == "FaceDetectP":
        score = calibration.proposal_threshold(cascade.Cascade(data), development)
    elif args.network == "FaceDetectR":
        score = calibration.refine_threshold(cascade.Cascade(read(args.work, "FaceDetectP"), data), development)
    else:
        detector = cascade.Cascade(read(args.work, "FaceDetectP"), read(args.work, "FaceDetectR"), data)
        # Also in the mirror: with 50 false positives to go by, each of them moves the score.
        _, false, _, count = calibration.report(detector, development + [photos.mirrored(p) for p in development])
        for value, name in false[:15]:
            print(f"  false: {value:.3f} {name}")
        allowed = int(0.05 * count)  # false positives that the development photos may have
        score = false[allowed][0] if len(false) > allowed else LIBRARY_THRESHOLD[args.network]
    return score


def _keep(args, name, data):
    for folder in {args.work, args.models} - {None}:
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)


def write(args, network, trainer):
    shift, moved = {}, "not calibrated"
    if hasattr(trainer, "report"):
        trainer.report(args, network)
    if args.network in embedding.SHAPES:
        _write_embedding(args, network)
        return
    if args.network in SCORE_HEAD:
        score, wanted = operating_score(args, network, trainer), LIBRARY_THRESHOLD[args.network]
        shift[SCORE_HEAD[args.network]] = np.float32(calibration.logit(wanted) - calibration.logit(score))
        moved = f"score {score:.3f} moved to {wanted}"
    data = networks.export(network, shift)
    sizes = [(1, 24, 24), (1, 128, 171), (1, 26, 34)] if args.network == "FaceDetectP" else None
    error = networks.check_export(args.network, network, data, shift, sizes)
    _keep(args, networks.file_name(args.network), data)
    print(f"{networks.file_name(args.network)}: {len(data)} bytes, {moved}, "
          f"largest difference from the trained network {error:.1e}")
    if args.answers:
        _graph_answers(args, network, shift)


def _write_embedding(args, network):
    base = embedding.base_name(network.definition)
    weights, text = embedding.export(network)
    error = embedding.check_export(network, weights, text)
    _keep(args, f"{base}_Model.caffemodel", weights)
    _keep(args, f"{base}_Prototxt.prototxt", text)
    print(f"{base}: {len(weights)} bytes of weights, {len(text)} of text, largest difference from the trained network {error:.1e}")
    if args.answers:
        shape = (1, 3, embedding.CROP, embedding.CROP)
        with torch.no_grad():
            answer = network(torch.from_numpy(_test_input(shape)))
        _write_answers(args, f"{base}_Model", "data", shape, [_answer(network.definition.output, answer)])


def _test_input(shape):
    """An input that a test can make by itself: sample i is (i * 2654435761 mod 2^32) / 2^31 - 1."""
    i = np.arange(np.prod(shape), dtype=np.uint64)
    x = ((i * np.uint64(2654435761)) % np.uint64(2 ** 32)).astype(np.float64) / 2 ** 31 - 1
    return x.astype(np.float32).reshape(shape)


def _answer(name, y):
    return {"name": name, "shape": list(y.shape), "values": [round(float(v), 6) for v in y.flatten()]}


def _graph_answers(args, network, shift):
    shape = (1, 3, 40, 56) if args.network == "FaceDetectP" else (2, network.definition.channels, *network.definition.input_size)
    with torch.no_grad():
        outputs = network(torch.from_numpy(_test_input(shape)))
    answers = []
    for (head, _, kind), y, name in zip(network.definition.heads, outputs, networks.output_names(args.network)):
        if head in shift:
            y[:, 1::2] += float(shift[head])
        answers.append(_answer(name, torch.softmax(y, 1) if kind in networks.SOFTMAX else y))
    _write_answers(args, networks.file_name(args.network).replace(".pb", ""), "input_image", shape, answers)


def _write_answers(args, name, blob, shape, answers):
    os.makedirs(args.answers, exist_ok=True)
    with open(os.path.join(args.answers, f"{name}.json"), "w") as f:
        json.dump({"input": {"name": blob, "shape": list(shape)}, "outputs": answers}, f)
        f.write("\n")
