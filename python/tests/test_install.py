"""The package as others get it: installed by pip and by CMake, without the build folder."""

import os
import pathlib
import subprocess
import sys

import pytest
from conftest import PHOTOS

PROGRAM = """
import sys, cv2, veldan
face = veldan.Engine().detect(cv2.imread(sys.argv[1]))[0]
maps = open("/proc/self/maps").read().split()
print(face.box.width, face.quality, veldan.__file__, next(path for path in maps if "libveldan.so" in path))
"""


def answers(python, path=None):
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("PYTHON", "VELDAN"))}
    if path:
        environment["PYTHONPATH"] = str(path)
    done = subprocess.run([python, "-c", PROGRAM, PHOTOS / "astronaut.jpg"], env=environment, cwd="/", check=True,
                          capture_output=True, text=True)
    width, quality, package, library = done.stdout.split()
    assert int(width) > 50 and int(quality) > 50
    return pathlib.Path(package), pathlib.Path(library)


@pytest.mark.slow
def test_pip_installs_into_a_fresh_environment(tmp_path):
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", "--without-pip", tmp_path], check=True)
    python = tmp_path / "bin" / "python"
    subprocess.run([python, "-m", "pip", "install", "-q", "--no-build-isolation", "--no-index",
                    pathlib.Path(__file__).resolve().parents[1]], check=True)
    package, library = answers(python)
    assert tmp_path in package.parents and library.parent == package.parent


@pytest.mark.slow
def test_cmake_installs_package_and_library(tmp_path):
    for component in ("python", "runtime"):
        subprocess.run(["cmake", "--install", os.environ["VELDAN_BUILD_DIR"], "--prefix", tmp_path, "--component", component],
                       check=True, capture_output=True)
    package, library = answers(sys.executable, tmp_path / "lib" / "python3" / "dist-packages")
    assert tmp_path in package.parents and tmp_path in library.parents
