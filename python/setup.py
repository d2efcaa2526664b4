"""Builds the zul package through CMake: the compiled module and libzul.so.1 beside it.

    pip install --no-build-isolation ./python

builds the repository above this folder in a temporary folder (or in ZUL_CMAKE_BUILD_DIR, which
an existing build can be, to build only what changed) and puts the package together.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def library_version():
    """The version as include/zul.h defines it, the one place it is written."""
    with open(os.path.join(ROOT, "include", "zul.h")) as header:
        text = header.read()
    return ".".join(re.search(rf"^#define ZUL_VERSION_{part} (\d+)$", text, re.M).group(1)
                    for part in ("MAJOR", "MINOR", "PATCH"))


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        build = os.environ.get("ZUL_CMAKE_BUILD_DIR")
        if build is None:
            build = tempfile.mkdtemp(prefix="zul-build-")
            subprocess.check_call(["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                                   "-DZUL_BUILD_TESTS=OFF", "-DZUL_BUILD_BENCHMARKS=OFF", "-DZUL_BUILD_TOOLS=OFF",
                                   f"-DPython3_EXECUTABLE={sys.executable}"])
        subprocess.check_call(["cmake", "--build", build, "--target", "zul_python", "-j2"])
        package = os.path.join(os.path.abspath(self.build_lib), "zul")
        os.makedirs(package, exist_ok=True)
        built = os.path.join(build, "python", "zul")
        for name in os.listdir(built):
            shutil.copy2(os.path.join(built, name), package)
        # The module finds the library beside itself ($ORIGIN).
        shutil.copy2(os.path.join(build, "src", "libzul.so.1"), package)


# setuptools' own folders go to a temporary place, not into the source tree.
SCRATCH = os.path.join(tempfile.gettempdir(), f"zul-setuptools-{os.getuid()}")
os.makedirs(SCRATCH, exist_ok=True)

setup(
    version=library_version(),
    options={"build": {"build_base": os.path.join(SCRATCH, "build")},
             "egg_info": {"egg_base": SCRATCH}},
    packages=["zul"],
    package_dir={"zul": "zul"},
    ext_modules=[Extension("zul._zul", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
