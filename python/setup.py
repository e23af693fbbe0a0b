"""Builds the extension module with CMake and puts it into the package together with the library.

VELDAN_BUILD_DIR names a build folder that exists already, configured with -DVELDAN_PYTHON=ON; otherwise one is made.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
TREE = HERE.parent
SCRATCH = TREE / "build" / "wheel"


def version() -> str:
    return re.search(r"project\(veldan VERSION ([0-9.]+)", (TREE / "CMakeLists.txt").read_text()).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve().parent
        target.mkdir(parents=True, exist_ok=True)
        build = os.environ.get("VELDAN_BUILD_DIR")
        if build is None:
            build = SCRATCH / "cmake"
            subprocess.run(["cmake", "-S", TREE, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DVELDAN_PYTHON=ON",
                            "-DVELDAN_DEVELOPER=OFF", "-DVELDAN_BUILD_CLI=OFF"], check=True)
        subprocess.run(["cmake", "--build", build, "--parallel", str(os.cpu_count() or 1), "--target", "veldan_python"],
                       check=True)
        with tempfile.TemporaryDirectory() as stage:
            for component in ("python", "runtime"):
                subprocess.run(["cmake", "--install", build, "--component", component, "--prefix", stage], check=True)
            for pattern in ("_veldan*.so", "libveldan.so.[0-9]"):
                [found] = pathlib.Path(stage).rglob(pattern)
                shutil.copy(found, target)


SCRATCH.mkdir(parents=True, exist_ok=True)
setup(
    version=version(),
    ext_modules=[Extension("veldan._veldan", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": str(SCRATCH / "setuptools")}, "egg_info": {"egg_base": str(SCRATCH)}},
)
