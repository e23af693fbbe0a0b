"""The two commands of ``face_recognition``, as CSV lines: who is in pictures, and where faces are."""

import argparse
import csv
import pathlib
import sys
from typing import Iterator, List, Optional, Sequence, Tuple

import numpy as np

from ..batch import ScanResult, scan
from . import TOLERANCE, Encoding, encoding_of, face_distance

EXTENSIONS = (".jpg", ".jpeg", ".png", ".webp", ".bmp", ".tif", ".tiff", ".heic", ".avif")


def pictures(path: pathlib.Path) -> List[pathlib.Path]:
    """A picture, or those of a folder by name."""
    if path.is_dir():
        return sorted(file for file in path.iterdir() if file.suffix.lower() in EXTENSIONS)
    return [path]


def warn(words: str) -> None:
    sys.stderr.write(f"veldan.face_recognition: {words}\n")


def known_people(results: Iterator[ScanResult]) -> Tuple[List[str], List[Encoding]]:
    names, encodings = [], []
    for result in results:
        if result.error is not None:
            warn(f"{result.photo}: {result.error}")
        elif not result.faces:
            warn(f"{result.photo}: no face was found; the picture is left out")
        else:
            if len(result.faces) > 1:
                warn(f"{result.photo}: {len(result.faces)} faces; the largest one is taken")
            names.append(result.photo.stem)
            encodings.append(encoding_of(result.templates[0]))
    return names, encodings


def recognised(result: ScanResult, names: List[str], known: List[Encoding], tolerance: float) -> List[Tuple[str, float]]:
    """Name and distance of all who match, face by face."""
    people: List[Tuple[str, float]] = []
    for template in result.templates:
        distances = face_distance(known, encoding_of(template))
        matches = [(names[i], float(distances[i])) for i in np.flatnonzero(distances <= tolerance)]
        people += matches or [("unknown_person", float("nan"))]
    return people or [("no_persons_found", float("nan"))]


def main(words: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m veldan.face_recognition", description=__doc__, epilog=(
        "With a folder of known people, whose pictures are named like them: PICTURE,NAME for each match, "
        "unknown_person for a face that nobody matches, no_persons_found. Without: PICTURE,TOP,RIGHT,BOTTOM,LEFT."))
    parser.add_argument("known", nargs="?", type=pathlib.Path, metavar="KNOWN_FOLDER")
    parser.add_argument("pictures", type=pathlib.Path, metavar="PICTURE_OR_FOLDER")
    parser.add_argument("--cpus", type=int, default=1, help="processes; -1 for one a processor (default: %(default)s)")
    parser.add_argument("--tolerance", type=float, default=TOLERANCE, help="greatest distance of a match (default: %(default)s)")
    parser.add_argument("--show-distance", action="store_true", help="add the distance to each line")
    options = parser.parse_args(words)
    jobs = None if options.cpus < 1 else options.cpus

    def examined(path: pathlib.Path) -> Iterator[ScanResult]:
        # Bare templates throughout: encodings of masked ones could not be compared with them.
        return scan(pictures(path), jobs=jobs, judge=False, templates="bare" if options.known else False)

    names, known = known_people(examined(options.known)) if options.known else ([], [])
    lines = csv.writer(sys.stdout, lineterminator="\n")
    failed = False
    for result in examined(options.pictures):
        if result.error is not None:
            warn(f"{result.photo}: {result.error}")
            failed = True
        elif options.known:
            for name, distance in recognised(result, names, known, options.tolerance):
                shown = "None" if np.isnan(distance) else distance
                lines.writerow([result.photo, name] + ([shown] if options.show_distance else []))
        else:
            for face in result.faces:
                lines.writerow([result.photo, face.box.y, face.box.right, face.box.bottom, face.box.x])
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
