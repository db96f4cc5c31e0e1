"""The package for Python as a wheel: what CMake builds and installs, with the libraries beside the extension."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext
from setuptools.errors import OptionError

ROOT = Path(__file__).parent
BUILD = ROOT / "build" / "wheel"


def build() -> Path:
    """The folder of a build: the one that NETROVE_BUILD names, or one of our own."""
    if made := os.environ.get("NETROVE_BUILD"):
        return Path(made)
    settings = ["-DNETROVE_BUILD_TESTS=OFF", "-DNETROVE_BUILD_BENCH=OFF", "-DNETROVE_WERROR=OFF", "-DNETROVE_PYTHON=ON"]
    python = f"-DPython_EXECUTABLE={sys.executable}"
    subprocess.run(["cmake", "-S", ROOT, "--preset", "release", "-B", BUILD, *settings, python], check=True)
    subprocess.run(["cmake", "--build", BUILD, "--target", "netrove_python"], check=True)
    return BUILD


class BuildWithCMake(build_ext):
    def run(self) -> None:
        if self.editable_mode:
            raise OptionError("pip install -e cannot be used: name the folder python of a build in PYTHONPATH")
        package = Path(self.build_lib, "netrove")
        shutil.rmtree(package, ignore_errors=True)
        built = build()
        with tempfile.TemporaryDirectory() as prefix:
            for part in ("runtime", "python"):
                command = ["cmake", "--install", built, "--prefix", prefix, "--component", part, "--strip"]
                subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
            (extension,) = Path(prefix).rglob("_netrove.*.so")
            shutil.copytree(extension.parent, package)
            # A wheel has no links: each library under the name that the loader asks for.
            libraries = [file for file in Path(prefix).rglob("lib*.so*")]
            linked = {file.readlink().name for file in libraries if file.is_symlink()}
            for file in libraries:
                if file.name not in linked:
                    shutil.copy(file, package)


BUILD.parent.mkdir(exist_ok=True)
setup(
    version=re.search(r"project\(netrove VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1],
    ext_modules=[Extension("netrove._netrove", [])],
    cmdclass={"build_ext": BuildWithCMake},
    options={"egg_info": {"egg_base": str(BUILD.parent)}},
)
