#!/usr/bin/env python3
"""Compares what two builds of the command, each a command line, find in photos: boxes to a pixel, templates to 1e-4.

usage: compare_builds.py COMMAND OTHER_COMMAND PHOTO...
"""
import json
import shlex
import struct
import subprocess
import sys


def run(command, *words):
    return subprocess.run([*shlex.split(command), *words], stdout=subprocess.PIPE, check=True).stdout


def feature(command, photo):
    return struct.unpack("<128f", run(command, "template", photo, "-o", "-")[8:])


def similarity(a, b):
    def dot(u, v):
        return sum(x * y for x, y in zip(u, v))
    return (dot(a, b) / (dot(a, a) * dot(b, b)) ** 0.5 + 1) / 2


def places(face):
    return [*face["box"].values(), *(value for point in face["points"] for value in point), face["eyeDistance"]]


def main():
    one, other, *photos = sys.argv[1:]
    faces = [[photo["faces"] for photo in json.loads(run(command, "detect", "--json", *photos))["photos"]]
             for command in (one, other)]
    wrong = False
    for photo, expected, found in zip(photos, *faces):
        moved = max((abs(a - b) for pair in zip(expected, found) for a, b in zip(*map(places, pair))), default=0)
        said = f"{photo}: {len(expected)} and {len(found)} faces, places differ by {moved} pixels"
        wrong = wrong or len(expected) != len(found) or moved > 1
        if len(expected) == len(found) == 1:
            off = abs(1 - similarity(feature(one, photo), feature(other, photo)))
            said += f", templates by {off:.1e}"
            wrong = wrong or not off < 1e-4
        print(said)
    return 1 if wrong or not photos else 0


if __name__ == "__main__":
    sys.exit(main())
