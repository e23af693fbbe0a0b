import json
import os
import pathlib
import subprocess

import cv2
import pytest

import veldan

PHOTOS = pathlib.Path(__file__).resolve().parents[2] / "examples" / "photos"


veldan.set_opencv_threads(1)


def pytest_addoption(parser):
    parser.addoption("--slow", action="store_true", help="only the tests that take long")


def pytest_collection_modifyitems(config, items):
    wanted = config.getoption("--slow")
    left_out = [item for item in items if ("slow" in item.keywords) != wanted]
    items[:] = [item for item in items if ("slow" in item.keywords) == wanted]
    config.hook.pytest_deselected(items=left_out)


def pixels(name):
    """A bundled photo as OpenCV reads it."""
    return cv2.imread(str(PHOTOS / name))


@pytest.fixture(scope="session")
def engine():
    with veldan.Engine() as one:
        yield one


@pytest.fixture(scope="session")
def command():
    """Runs the veldan command; gives what it printed, JSON where --json is asked for."""
    def run(*words, code=0):
        done = subprocess.run([os.environ["VELDAN_COMMAND"], *map(str, words)], capture_output=True, timeout=120)
        assert done.returncode == code, done.stderr
        return json.loads(done.stdout) if "--json" in words else done.stdout
    return run


@pytest.fixture
def rows():
    return pixels("rows.webp")
