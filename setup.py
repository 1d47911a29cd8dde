"""Builds the Python module ddb_pdm with CMake, for pip (see pyproject.toml).

setuptools knows nothing of the C++ build, so the one extension here is
built by configuring the source tree with CMake (only the library and the
module), building the module's target and installing CMake's "python"
component: the module and its stub. The library goes beside them in
ddb_pdm.libs/, under its soname, which the module's run path
($ORIGIN/ddb_pdm.libs) names; nothing needs LD_LIBRARY_PATH.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
VERSION = re.search(r"project\(DDB_PDM_Core VERSION ([0-9.]+)",
                    (ROOT / "CMakeLists.txt").read_text()).group(1)
LIBS = "ddb_pdm.libs"


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        out = Path(self.get_ext_fullpath(ext.name)).resolve().parent
        temp = Path(self.build_temp).resolve()
        build, stage = temp / "cmake", temp / "stage"
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
            f"-DPython3_EXECUTABLE={sys.executable}", "-DDDB_PYTHON_REQUIRED=ON",
            "-DDDB_BUILD_TESTS=OFF", "-DDDB_BUILD_BENCH=OFF", "-DDDB_BUILD_EXAMPLES=OFF",
            "-DDDB_PYTHON_INSTALL_DIR=.", f"-DCMAKE_INSTALL_LIBDIR={LIBS}"]
        try:  # pybind11 from PyPI (an isolated build); else Debian's pybind11-dev
            import pybind11
            configure.append(f"-Dpybind11_DIR={pybind11.get_cmake_dir()}")
        except ImportError:
            pass
        subprocess.run(configure, check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", str(build), "--target", "ddb_pdm", "-j", jobs],
                       check=True)
        shutil.rmtree(stage, ignore_errors=True)
        subprocess.run(["cmake", "--install", str(build), "--component", "python",
                        "--prefix", str(stage)], check=True)
        shutil.copytree(stage, out, dirs_exist_ok=True)
        # The library under its soname only: a wheel holds no symbolic links.
        soname = f"libDDB_PDM_Core.so.{VERSION.split('.')[0]}"
        (out / LIBS).mkdir(exist_ok=True)
        shutil.copyfile(build / soname, out / LIBS / soname)


setup(version=VERSION, packages=[], py_modules=[], ext_modules=[Extension("ddb_pdm", sources=[])],
      cmdclass={"build_ext": CMakeBuild}, zip_safe=False)
