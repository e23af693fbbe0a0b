"""Many photos: in order, with an error object for each that is bad, whatever happens to workers."""

import os
import signal
import time

import pytest
from conftest import PHOTOS, pixels

import veldan

NAMES = ["first-bare.webp", "README.md", "first-mask.webp", "none.jpg", "street.webp"]


class Killer:
    """A photo that kills the process that opens it, at most so many times."""

    def __init__(self, scratch, times):
        self.scratch, self.times = scratch, times

    def open(self):
        count = len(list(self.scratch.iterdir()))
        if count < self.times:
            (self.scratch / str(count)).touch()
            os.kill(os.getpid(), signal.SIGKILL)
        return open(PHOTOS / "astronaut.jpg", "rb")


def test_results_come_in_order_and_bad_photos_are_errors(engine):
    told = []
    paths = [PHOTOS / name for name in NAMES]
    results = list(veldan.scan(paths, jobs=2, templates=True, progress=lambda *numbers: told.append(numbers)))
    assert [result.photo for result in results] == paths and told == [(number, 5) for number in range(1, 6)]
    assert [type(result.error) for result in results] == [type(None), veldan.PhotoError, type(None), veldan.MissingError, type(None)]
    for name, result in zip(NAMES, results):
        if result.error is None:
            image = pixels(name)
            faces = engine.judge(engine.detect(image))
            assert (result.height, result.width) == image.shape[:2]
            assert [face.record.tolist() for face in result.faces] == [face.record.tolist() for face in faces]
            assert result.templates == [engine.template(face, "masked" if face.masked else "bare") for face in faces]


def test_a_worker_that_dies_costs_one_photo_at_most(engine, tmp_path):
    (tmp_path / "once").mkdir(), (tmp_path / "always").mkdir()
    photos = [PHOTOS / "rows.webp", Killer(tmp_path / "always", 9), PHOTOS / "street.webp", Killer(tmp_path / "once", 1),
              lambda: None, PHOTOS / "queue.webp"]
    results = list(veldan.scan(iter(photos), jobs=2, judge=False))
    rows, street, queue = (len(engine.detect(pixels(name))) for name in ("rows.webp", "street.webp", "queue.webp"))
    assert [len(result.faces) for result in results] == [rows, 0, street, 1, 0, queue]
    assert isinstance(results[1].error, veldan.WorkerError) and "signal 9" in str(results[1].error)
    assert [result.error is None for result in results] == [True, False, True, True, False, True]


def test_truncated_photos_say_so(tmp_path, capfd):
    content = (PHOTOS / "astronaut.jpg").read_bytes()
    (tmp_path / "half.jpg").write_bytes(content[:len(content) * 2 // 3])
    [result] = veldan.scan([tmp_path / "half.jpg"], jobs=1)
    assert result.error is None and result.flaw == "truncated" and len(result.faces) == 1
    assert capfd.readouterr() == ("", "")


def test_a_scan_that_is_given_up_leaves_no_processes():
    scan = veldan.scan([PHOTOS / "rows.webp"] * 50, jobs=2)
    next(scan)
    children = open(f"/proc/self/task/{os.getpid()}/children").read().split()
    assert len(children) >= 2
    scan.close()
    until = time.monotonic() + 20
    while time.monotonic() < until and any(os.path.exists(f"/proc/{child}") for child in children):
        time.sleep(0.05)
    assert not any(os.path.exists(f"/proc/{child}") for child in children)
    assert list(veldan.scan([])) == []
    with pytest.raises(ValueError):
        veldan.scan([], jobs=0)
