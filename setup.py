"""Builds the extension by CMake; pyproject.toml has everything else."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

root = pathlib.Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        target = pathlib.Path(self.get_ext_fullpath(extension.name)).resolve()
        build = pathlib.Path(self.build_temp).resolve()
        build.mkdir(parents=True, exist_ok=True)
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        subprocess.run(
            ["cmake", "-S", root, "-B", build, *generator, "-DCMAKE_BUILD_TYPE=Release",
             "-DVANTRY_DEVELOPER=OFF", "-DVANTRY_SHARED=OFF", "-DVANTRY_PYTHON=ON",
             f"-DPython_EXECUTABLE={sys.executable}", "-DCMAKE_MODULE_LINKER_FLAGS=-s",
             f"-DVANTRY_PYTHON_OUTPUT={target.parent}"], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "_vantry",
                        "--parallel", str(os.cpu_count() or 1)], check=True)


version = re.search(r"project\(Vantry\s+VERSION (\S+)", (root / "CMakeLists.txt").read_text())
setup(version=version[1], ext_modules=[Extension("vantry._vantry", [])],
      cmdclass={"build_ext": CMakeBuild})
