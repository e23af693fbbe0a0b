"""Measures what Python adds, and what threads, repetition and a cluster give: measure.py calls|threads|leaks|cluster.

Run with PYTHONPATH and VELDAN_LIBRARY of a build folder (python/tests/CMakeLists.txt). CPU times hold on a loaded machine, too.
"""

import argparse
import concurrent.futures
import ctypes
import os
import pathlib
import resource
import statistics
import sys
import tempfile
import time

import numpy as np

import veldan

PHOTO = pathlib.Path(__file__).resolve().parents[2] / "examples" / "photos" / "astronaut.jpg"


def say(*words):
    sys.stdout.write(" ".join(map(str, words)) + "\n")
    sys.stdout.flush()


def frame():
    """640 x 480 with one face."""
    photo = veldan.read_image(PHOTO)
    return np.ascontiguousarray(np.pad(photo[:480], ((0, 0), (64, 64), (0, 0))))


class Library:
    """The C interface of the very library that the package has loaded."""

    def __init__(self):
        self.dll = ctypes.CDLL(os.environ["VELDAN_LIBRARY"])
        self.dll.zzInitAlgNThread.restype = ctypes.c_void_p
        self.handle = ctypes.c_void_p(self.dll.zzInitAlgNThread(None, 0, None))
        self.records, self.count = np.zeros((5000, 262), np.int32), ctypes.c_int()
        self.template = ctypes.create_string_buffer(520)

    def detect(self, image):
        self.dll.zzDetectFaceThread(self.handle, ctypes.c_void_p(image.ctypes.data), 640, 480, ctypes.byref(self.count),
                                    ctypes.c_void_p(self.records.ctypes.data))

    def extract(self, image):
        self.dll.zzExtractFeatureThread(self.handle, ctypes.c_void_p(image.ctypes.data), 640, 480, 1,
                                        ctypes.c_void_p(self.records.ctypes.data), self.template)

    def quality(self, image):
        self.dll.zzFaceQualityThread(self.handle, ctypes.c_void_p(image.ctypes.data), 640, 480, 1,
                                     ctypes.c_void_p(self.records.ctypes.data))


def calls(rounds):
    """CPU milliseconds of a call from Python and through the C interface, in turns."""
    veldan.set_opencv_threads(1)
    image, library, engine = frame(), Library(), veldan.Engine(0)
    turned = np.ascontiguousarray(image[..., ::-1])
    library.detect(image)
    face = engine.detect(image)[0]

    def judge_anew():
        face._known.clear()
        return face.quality

    pairs = {"detect": (lambda: engine.detect(image), lambda: library.detect(image)),
             "detect, copy=False": (lambda: engine.detect(image, copy=False), lambda: library.detect(image)),
             "detect, order=RGB": (lambda: engine.detect(turned, order="RGB"), lambda: library.detect(image)),
             "quality": (judge_anew, lambda: library.quality(image)),
             "template": (lambda: engine.template(face), lambda: library.extract(image))}
    for name, both in pairs.items():
        times = ([], [])
        for _ in range(rounds):
            for call, spent in zip(both, times):
                start = time.thread_time()
                call()
                spent.append(1e3 * (time.thread_time() - start))
        python, plain = map(statistics.median, times)
        more = statistics.median(a - b for a, b in zip(*times))
        say(f"{name:20} Python {python:.3f} ms, C {plain:.3f} ms, median difference {more:+.3f} ms")


def threads(rounds):
    """Frames a second of two threads with an engine each beside one."""
    veldan.set_opencv_threads(1)
    image, engines = frame(), [veldan.Engine(0), veldan.Engine(0)]

    def work(engine):
        for _ in range(rounds):
            for face in engine.detect(image):
                engine.template(face)

    def rate(count):
        with concurrent.futures.ThreadPoolExecutor(count) as pool:
            start, cpu = time.perf_counter(), time.process_time()
            list(pool.map(work, engines[:count]))
            wall, spent = time.perf_counter() - start, time.process_time() - cpu
        return count * rounds / wall, spent / (count * rounds) * 1e3, spent / wall

    for attempt in range(3):
        (one, cost, busy), (two, cost_of_two, busy_of_two) = rate(1), rate(2)
        say(f"one thread {one:.0f} frames/s ({cost:.2f} CPU ms a frame, {busy:.2f} cores), two {two:.0f} frames/s ({cost_of_two:.2f} "
            f"CPU ms a frame, {busy_of_two:.2f} cores): {two / one:.2f} times")


def leaks(rounds):
    """Resident memory while everything is called again and again."""
    veldan.set_opencv_threads(1)
    image, engine = frame()[:200, 200:400].copy(), veldan.Engine(0)
    tracker, pieces = veldan.Tracker(engine), 10

    def resident():
        return int(open("/proc/self/statm").read().split()[1]) * resource.getpagesize() / 1024

    for piece in range(pieces + 1):
        for _ in range(rounds // pieces):
            faces = engine.judge(engine.detect(image, order="RGB"))
            veldan.similarity(engine.template(faces[0]), engine.template(faces[0], "masked" if faces[0].masked else "bare"))
            engine.align(faces[0])
            tracker.next(image)
            tracker.judge()
            veldan.draw(image, faces)
            try:
                engine.detect(image[:50])
            except veldan.ImageTooSmallError:
                pass
        say(f"{(piece + 1) * rounds // pieces} rounds: {resident():.0f} KiB")


def cluster(photos, partition):
    """Photos a second of one process and of two workers."""
    import distributed

    import veldan.distributed
    from veldan import _worker
    paths = [str(path) for path in photos]
    start, cpu = time.perf_counter(), time.process_time()
    for path in paths:
        _worker.examine(path, True, True)
    wall = time.perf_counter() - start
    say(f"one process: {len(paths)} photos, {len(paths) / wall:.1f} photos/s, {time.process_time() - cpu:.1f} CPU s")
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as local:
        with distributed.Client(local) as client:
            client.run(lambda: _worker.examine(paths[0], True, True) and None)
            before = sum(client.run(time.process_time).values())
            with tempfile.TemporaryDirectory() as out:
                start = time.perf_counter()
                summary = veldan.distributed.process(paths, out, client, partition=partition)
                wall = time.perf_counter() - start
                spent = sum(client.run(time.process_time).values()) - before
                say(f"two workers: {summary}, {len(paths) / wall:.1f} photos/s, {spent:.1f} CPU s")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("what", choices=["calls", "threads", "leaks", "cluster"])
    parser.add_argument("photos", nargs="*", type=pathlib.Path, help="for cluster: photos and folders")
    parser.add_argument("--rounds", type=int, default=300)
    parser.add_argument("--most", type=int, default=5000, help="for cluster: photos at most")
    parser.add_argument("--partition", type=int, default=100)
    options = parser.parse_args()
    if options.what == "cluster":
        found = [file for path in options.photos for file in (sorted(path.rglob("*.*")) if path.is_dir() else [path])]
        cluster(found[:options.most], options.partition)
    else:
        {"calls": calls, "threads": threads, "leaks": leaks}[options.what](options.rounds)


if __name__ == "__main__":
    main()
