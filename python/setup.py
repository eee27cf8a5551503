"""Builds a wheel of `ptplib` that contains the libraries, too:

    pip wheel --no-build-isolation --no-deps ./python

Needs what ./dev installs, and Debian's pybind11-dev and python3-dev; the wheel is for the interpreter
that builds it. PTPLIB_BUILD_DIR names a finished build to take instead of making one."""

import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
LIBRARIES = ("Kiv", "PtpPlatform", "PtpLib", "Holt")


def version():
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as file:
        return re.search(r"^project\(PtpLib VERSION ([0-9.]+)", file.read(), re.M).group(1)


class Build(build_ext):
    """Takes the package and the libraries from a build with CMake."""

    def run(self):
        build = os.environ.get("PTPLIB_BUILD_DIR") or self.make()
        package = os.path.join(self.build_lib, "ptplib")
        shutil.copytree(os.path.join(build, "python", "ptplib"), package, dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("__pycache__"))
        major = version().split(".")[0]
        for library in LIBRARIES:
            name = f"lib{library}.so.{major}"
            shutil.copyfile(os.path.join(build, "lib", name), os.path.join(package, name))

    def make(self):
        build = os.path.abspath(self.build_temp)
        subprocess.run(["cmake", "-G", "Ninja", "-S", ROOT, "-B", build,
                        "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_BUILD_RPATH_USE_ORIGIN=ON",
                        "-DPTPLIB_TESTS=OFF", "-DPTPLIB_BENCHES=OFF",
                        f"-DPTPLIB_PYTHON={sys.executable}"], check=True)
        subprocess.run(["cmake", "--build", build, "--target", "python"], check=True)
        return build


setup(
    name="ptplib",
    version=version(),
    description="State of an IEEE 1588 (PTP) agent, typed and mirrored",
    python_requires=">=3.9",
    packages=[],
    ext_modules=[Extension("ptplib._ptplib", [])],
    cmdclass={"build_ext": Build},
)
