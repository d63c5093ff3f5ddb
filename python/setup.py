"""Builds the package with the library beside it when one is at hand.

The library is taken from PAXIMAGE_LIBRARY when set, else from the build tree
of this checkout (build/linux/bin or build/windows/bin). Without one the
package is built alone and looks for the library at run time.
"""
import os
import shutil

from setuptools import setup
from setuptools.command.build_py import build_py
from setuptools.dist import Distribution

HERE = os.path.dirname(os.path.abspath(__file__))
NAME = "PAXIMGUser.dll" if os.name == "nt" else "libPAXIMGUser.so"


def built_library():
    env = os.environ.get("PAXIMAGE_LIBRARY")
    if env:
        return os.path.join(env, NAME) if os.path.isdir(env) else env
    for preset in ("windows", "linux") if os.name == "nt" else ("linux",):
        path = os.path.join(HERE, "..", "build", preset, "bin", NAME)
        if os.path.exists(path):
            return path
    return None


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        library = built_library()
        if library and os.path.exists(library):
            shutil.copy(library, os.path.join(self.build_lib, "paximage", NAME))
            print("paximage: bundling %s" % os.path.abspath(library))
        else:
            print("paximage: no built library found; it is looked for at run time")


class Platform(Distribution):
    def has_ext_modules(self):  # a bundled shared library makes the wheel platform-specific
        return built_library() is not None


setup(cmdclass={"build_py": BuildWithLibrary}, distclass=Platform)
