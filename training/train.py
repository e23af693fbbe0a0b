#!/usr/bin/env python3
"""Trains one of the networks: training/train.py NAME --data FOLDER. See training/README.md."""
import argparse
import importlib
import os
import socket
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

TRAINERS = {"FaceDetectP": "train_proposals", "FaceDetectR": "train_refinement", "FaceDetectO": "train_refinement",
            "FaceMaskAlign": "train_mask_align", "FaceMaskDetect": "train_mask_detect", "FaceQuality": "train_quality",
            "LiveDetect_RGB": "train_liveness", "LiveDetect_NIR": "train_liveness",
            "FaceRecog": "train_recognition", "FaceMaskRecog": "train_recognition"}


def start_others(processes):
    """Two processes of one thread each get a fifth more done than one of two. In the variables that torch.distributed reads;
    its own launcher, torchrun, does not run on Debian's Python."""
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        os.environ.update(MASTER_ADDR="127.0.0.1", MASTER_PORT=str(free.getsockname()[1]), WORLD_SIZE=str(processes), RANK="0")
    for rank in range(1, processes):
        subprocess.Popen([sys.executable, *sys.argv], env={**os.environ, "RANK": str(rank)})


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("network", choices=list(TRAINERS))
    parser.add_argument("--data", required=True, help="folder with photos/ and faces/")
    parser.add_argument("--more", help="folder with further packs, PACK/ and PACK.csv: everyday photos with PACK.labels.csv for the FaceDetect "
                                       "networks, attack_* for LiveDetect_RGB")
    parser.add_argument("--work", default="training/work", help="folder for checkpoints (default: %(default)s)")
    parser.add_argument("--steps", type=int, help="length of the schedule (default: the network's own)")
    parser.add_argument("--rate", type=float, help="highest learning rate (default: the network's own)")
    parser.add_argument("--start", metavar="CHECKPOINT", help="begin a new schedule from the weights of an earlier run")
    parser.add_argument("--minutes", type=float, help="stop after so many, with a checkpoint that the same command continues from")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--threads", type=int, default=1, help="of torch")
    parser.add_argument("--processes", type=int, default=1, help="that train together, each on its part of a batch (recognizers only)")
    parser.add_argument("--shape", help="of a recognizer, see SHAPES in embedding.py (default: as shipped)")
    parser.add_argument("--faces", default="training/work/faces", help="folder of make_faces.py (recognizers only; default: %(default)s)")
    parser.add_argument("--device", default="cpu", help="of torch, e.g. cuda: trains there and exports nothing, which --export-only does "
                                                        "afterwards (recognizers only)")
    parser.add_argument("--compile", action="store_true", help="let torch compile the network, where it can (recognizers only)")
    parser.add_argument("--batch", type=int, help="crops a step (recognizers only; default: 128)")
    parser.add_argument("--tail", type=float, default=4.0, help="weight of the most similar other faces (recognizers only; default: %(default)s)")
    parser.add_argument("--leave-out", nargs="+", default=[], metavar="SOURCE",
                        help="attack_* of --more to keep for measuring (LiveDetect_RGB only)")
    parser.add_argument("--workers", type=int, default=1, help="processes that prepare batches")
    parser.add_argument("--single", action="store_true", help="single precision throughout, for processors without bfloat16")
    parser.add_argument("--fresh", action="store_true", help="ignore a checkpoint of an earlier run")
    parser.add_argument("--models", help="folder that the finished network file is also written to, e.g. models")
    parser.add_argument("--networks", default="models", help="folder of the finished FaceDetect files, for data that the detector prepares "
                                                             "(default: %(default)s)")
    parser.add_argument("--answers", help="folder for the answers that the library's test compares, e.g. tests/data/networks")
    parser.add_argument("--score", type=float, help="uncalibrated score that becomes the library's threshold "
                                                    "(default: chosen on the development photos)")
    parser.add_argument("--export-only", action="store_true", help="calibrate and write the checkpoint, or --start, as it is")
    parser.add_argument("--weights", metavar="FOLDER", help="also write the weights that a later run can --start from, e.g. training/weights")
    args = parser.parse_args()
    import torch
    from veldan_training import embedding, exporting, networks, weights
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    trainer = importlib.import_module(f"veldan_training.{TRAINERS[args.network]}")
    shapes = embedding.SHAPES.get(args.network)
    if (args.processes > 1 or args.device != "cpu") and not shapes:
        parser.error("--processes, --device: only for the recognizers")
    if args.processes > 1 and not args.export_only and "RANK" not in os.environ:
        start_others(args.processes)
    if args.shape and args.shape not in (shapes or ()):
        parser.error(f"--shape: {args.network} has no shape {args.shape}")
    network = embedding.Network(shapes[args.shape or next(iter(shapes))]) if shapes else networks.Network(args.network)
    if args.export_only:
        network.load_state_dict(weights.read(args.start or os.path.join(args.work, f"{args.network}.checkpoint")))
        network.eval()
    else:
        trainer.train(args, network.to(args.device))
    if args.weights:
        weights.keep(args.weights, args.network, network)
    if args.device != "cpu":
        return
    exporting.write(args, network, trainer)


if __name__ == "__main__":
    main()
