"""A build of the package may carry the compiled library inside it; its wheel
is then specific to this platform and Python, not pure Python."""

from pathlib import Path

from setuptools import setup
from setuptools.dist import Distribution


class PackageWithLibrary(Distribution):
    def has_ext_modules(self) -> bool:
        return any((Path(__file__).resolve().parent / "ksi_polarization").glob("*.so"))


setup(distclass=PackageWithLibrary)
