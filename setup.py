"""Builds the Python package vexa with CMake: the extension and the library
it calls go into the package folder, the module finding the library beside
itself.

VEXA_CMAKE_BUILD_DIR names a CMake build folder to reuse (configured with
this source tree), under which setuptools then works too; otherwise all is
made under build-python/ in the source tree.
CMAKE_BUILD_PARALLEL_LEVEL sets the build's jobs (default 2).
"""
import glob
import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))
REUSED = os.environ.get("VEXA_CMAKE_BUILD_DIR")
# Everything setuptools writes stays in one folder: the reused build's, or
# one the source tree ignores.
OWN = os.path.join(os.path.abspath(REUSED), "python-package") if REUSED else os.path.join(ROOT, "build-python")


def project_version():
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as f:
        found = re.search(r"project\(\s*vexa\s+VERSION\s+([0-9.]+)", f.read())
    if not found:
        raise RuntimeError("CMakeLists.txt names no version of the project")
    return found.group(1)


class CMakeBuild(build_ext):
    """Builds the target vexa_python, installs its component into a staging
    folder (which gives the module its installed run path) and copies the
    package's files and the library into the build's package folder."""

    def build_extension(self, ext):
        build = os.path.abspath(REUSED) if REUSED else os.path.join(OWN, "cmake")
        if not os.path.exists(os.path.join(build, "CMakeCache.txt")):
            self._run(["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                       "-DVEXA_BUILD_TESTS=OFF", "-DVEXA_BUILD_TOOLS=OFF", "-DVEXA_BUILD_EXAMPLES=OFF",
                       "-DPython_EXECUTABLE=" + sys.executable])
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", "2")
        self._run(["cmake", "--build", build, "--target", "vexa_python", "-j", jobs])
        stage = os.path.join(os.path.abspath(self.build_temp), "stage")
        shutil.rmtree(stage, ignore_errors=True)
        self._run(["cmake", "--install", build, "--component", "python", "--prefix", stage])
        staged = glob.glob(os.path.join(stage, "**", "vexa", "_version.py"), recursive=True)
        if len(staged) != 1:
            raise RuntimeError(f"the package was not staged under {stage}: is VEXA_PYTHON_INSTALL_DIR "
                               "an absolute path in that build?")
        package = os.path.dirname(staged[0])
        modules = glob.glob(os.path.join(package, "_vexa*.so"))
        if len(modules) != 1:
            raise RuntimeError(f"no single extension module in {package}")
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copyfile(modules[0], target)
        shutil.copyfile(staged[0], os.path.join(os.path.dirname(target), "_version.py"))
        # The library under the name the module asks for (its soname).
        library = self._soname_file(build)
        shutil.copyfile(library, os.path.join(os.path.dirname(target), os.path.basename(library)))

    @staticmethod
    def _soname_file(build):
        found = [p for p in glob.glob(os.path.join(build, "libvexa.so.*"))
                 if re.fullmatch(r"libvexa\.so\.[0-9]+", os.path.basename(p))]
        if len(found) != 1:
            raise RuntimeError(f"no single libvexa.so.<major> in {build}")
        return found[0]

    @staticmethod
    def _run(command):
        print(" ".join(command), flush=True)
        subprocess.run(command, check=True)


os.makedirs(OWN, exist_ok=True)
setup(
    version=project_version(),
    packages=["vexa"],
    package_dir={"vexa": "python/vexa"},
    package_data={"vexa": ["py.typed", "*.pyi"]},
    exclude_package_data={"vexa": ["*.in"]},
    ext_modules=[Extension("vexa._vexa", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": os.path.relpath(OWN, ROOT)},
             "egg_info": {"egg_base": os.path.relpath(OWN, ROOT)}},
    zip_safe=False,
)
