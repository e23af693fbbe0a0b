#!/usr/bin/env python3
"""A gallery of random templates, for measurements: make_gallery.py VELDAN FILE PERSONS

Writes the rows of an SQLite gallery as `veldan enroll` would, one photo for a person, a million in about a minute. The
features are random directions of a usual length, so that nobody is similar to anybody.
"""

import os
import sqlite3
import subprocess
import sys
import time

import numpy as np

AT_ONCE = 20000
FEATURE_LENGTH = 60


def head_of(veldan, kind):
    """The bytes before checksum and feature, from a template of a photo."""
    photo = os.path.join(os.path.dirname(__file__), "../../examples/photos/first-bare.webp")
    mask = ["--mask"] if kind == "masked" else []
    path = f"/tmp/head-{os.getpid()}.tpl"
    subprocess.run([veldan, "template", photo, *mask, "-o", path], check=True, stdout=subprocess.DEVNULL)
    with open(path, "rb") as file:
        head = file.read(7)
    os.unlink(path)
    return head


def templates(generator, head, count):
    features = generator.standard_normal((count, 128), dtype=np.float32)
    features *= FEATURE_LENGTH / np.linalg.norm(features, axis=1, keepdims=True)
    rows = np.zeros((count, 520), np.uint8)
    rows[:, :7] = np.frombuffer(head, np.uint8)
    rows[:, 8:] = features.view(np.uint8).reshape(count, 512)
    rows[:, 7] = np.bitwise_xor.reduce(rows, axis=1)
    return rows


def main():
    veldan, path, persons = sys.argv[1], sys.argv[2], int(sys.argv[3])
    photo = os.path.join(os.path.dirname(__file__), "../../examples/photos/first-bare.webp")
    subprocess.run([veldan, "enroll", "--gallery", path, "first", photo], check=True, stdout=subprocess.DEVNULL)
    generator = np.random.default_rng(1)
    heads = [head_of(veldan, kind) for kind in ("bare", "masked")]
    database = sqlite3.connect(path, isolation_level=None)
    database.execute("PRAGMA synchronous = OFF")
    start = time.monotonic()
    for begin in range(2, persons + 1, AT_ONCE):
        count = min(AT_ONCE, persons + 1 - begin)
        bare, masked = (templates(generator, head, count) for head in heads)
        database.execute("BEGIN")
        numbers = range(begin, begin + count)
        database.executemany("INSERT INTO person VALUES (?, ?)", ((n, f"person {n}") for n in numbers))
        database.executemany("INSERT INTO photo VALUES (?, ?, ?, ?, '2026-01-01T00:00:00Z', 90, ?, ?)",
                             ((n, n, f"{n}.jpg", f"{n:064x}", bare[i].tobytes(), masked[i].tobytes())
                              for i, n in enumerate(numbers)))
        database.execute("COMMIT")
    database.close()
    print(f"{path}: {persons} persons, {os.path.getsize(path) / 1e6:.0f} MB, {time.monotonic() - start:.0f} s")


if __name__ == "__main__":
    main()
