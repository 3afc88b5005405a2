"""Builds the extension by CMake, with the libraries inside it: what pip installs needs nothing else.

    pip install --no-build-isolation bindings/python

CMAKE_ARGS in the environment holds further options for CMake.
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
OFF = ["INSTALL", "HOST", "TESTS", "BENCHMARKS", "GSTREAMER", "LV2", "ALSA"]


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        build = pathlib.Path(self.build_temp).resolve()
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        subprocess.run(["cmake", *generator, "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_SHARED_LIBS=OFF",
                        f"-DKORLA_PYTHON_EXECUTABLE={sys.executable}", *(f"-DKORLA_{name}=OFF" for name in OFF),
                        *shlex.split(os.environ.get("CMAKE_ARGS", ""))], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "korla_python", f"-j{os.cpu_count()}"], check=True)
        target = pathlib.Path(self.get_ext_fullpath(extension.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        (built,) = (build / "python/korla").glob("_core*.so")
        self.copy_file(str(built), str(target))


setup(version=re.search(r"VERSION ([\d.]+) LANGUAGES", (ROOT / "CMakeLists.txt").read_text())[1],
      ext_modules=[Extension("korla._core", [])], cmdclass={"build_ext": CMakeBuild})
