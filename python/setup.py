"""Builds the native modules by CMake and puts them, with the processor, into the package."""

from __future__ import annotations

import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent
TREE = HERE.parent


def version() -> str:
    text = (TREE / "CMakeLists.txt").read_text()
    found = re.search(r"VERSION (\d+(?:\.\d+)+)\n", text)
    if found is None:
        sys.exit(
            f"setup.py: {TREE / 'CMakeLists.txt'} names no version; install from a whole clone"
        )
    return found.group(1)


class Build_by_cmake(build_ext):
    def build_extension(self, extension: Extension) -> None:
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        build = Path(self.build_temp).resolve()
        subprocess.run(
            [
                "cmake",
                "-S",
                HERE,
                "-B",
                build,
                "-G",
                "Ninja",
                "-DCMAKE_BUILD_TYPE=Release",
                f"-DVELDRANE_PYTHON_PACKAGE={package}",
                f"-DPYTHON_EXECUTABLE={sys.executable}",
                *shlex.split(os.environ.get("CMAKE_ARGS", "")),
            ],
            check=True,
        )
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.run(
            ["cmake", "--build", build, "-j", jobs, "--target"]
            + [f"veldrane_polarization{name}" for name in ("_native", "_native_cameras")],
            check=True,
        )


setup(
    version=version(),
    ext_modules=[Extension("veldrane_polarization._native", [])],
    cmdclass={"build_ext": Build_by_cmake},
)
