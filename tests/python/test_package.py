"""The installed package: where it comes from, which library it loads, its
lifecycle, its documentation."""

from __future__ import annotations

import filecmp
import inspect
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import ksi_polarization as ksp
from conftest import installed_venv

LIBRARY = "libkestrion_ksi_polarization_processor.so"
EXTENSION = "libkestrion_ksi_polarization_processor_vector_avx2.so"
PACKAGE_DIRECTORY = Path(ksp.__file__).resolve().parent


def run_python(code: str, **environment: str) -> subprocess.CompletedProcess:
    return subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                          env={**os.environ, **environment})


def loaded_files() -> set:
    with open("/proc/self/maps") as maps:
        return {line.split(maxsplit=5)[5].strip() for line in maps if len(line.split(maxsplit=5)) == 6}


def test_the_package_is_the_one_installed_in_the_test_environment():
    venv = installed_venv()
    if venv is None:
        pytest.skip("not run by ctest: no virtual environment to compare with")
    assert PACKAGE_DIRECTORY.is_relative_to(venv.resolve())
    assert "site-packages" in PACKAGE_DIRECTORY.parts
    assert ksp.__version__ == os.environ["KSI_TEST_PROJECT_VERSION"]


def test_the_package_loads_the_library_it_was_installed_with():
    path = Path(ksp.library_path())
    assert path.is_absolute()
    assert path == PACKAGE_DIRECTORY / LIBRARY
    assert str(path) in loaded_files()
    built = os.environ.get("KSI_TEST_BUILT_LIBRARY")
    if built:
        assert filecmp.cmp(path, built, shallow=False)


def test_the_bundled_extension_is_the_one_the_library_loads():
    if not (PACKAGE_DIRECTORY / EXTENSION).exists():
        pytest.skip(f"this build has no {EXTENSION} to bundle")
    with ksp.Processor():
        assert str(PACKAGE_DIRECTORY / EXTENSION) in loaded_files()


def test_a_library_on_the_search_path_does_not_displace_the_bundled_one(tmp_path):
    shutil.copy(ksp.library_path(), tmp_path / LIBRARY)
    shutil.copy(ksp.library_path(), tmp_path / (LIBRARY + ".0"))
    result = run_python("import ksi_polarization as k; print(k.library_path())",
                        LD_LIBRARY_PATH=str(tmp_path), PYTHONPATH="")
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip() == ksp.library_path()


def copy_of_the_package_without_library(destination: Path) -> None:
    shutil.copytree(PACKAGE_DIRECTORY, destination / "ksi_polarization",
                    ignore=shutil.ignore_patterns("*.so", "__pycache__"))


def test_without_a_bundled_library_the_installed_system_library_is_used(tmp_path):
    copy_of_the_package_without_library(tmp_path / "site")
    system = tmp_path / "lib"
    system.mkdir()
    shutil.copy(ksp.library_path(), system / (LIBRARY + ".0"))
    result = run_python("import ksi_polarization as k, numpy as np\n"
                        "with k.Processor() as p: p.transform(np.zeros((4, 4), np.uint16), phase=0, bit_depth=8)\n"
                        "print(k.library_path())",
                        LD_LIBRARY_PATH=str(system), PYTHONPATH=str(tmp_path / "site"))
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip() == str(system / (LIBRARY + ".0"))


def test_without_any_library_the_import_error_says_where_it_looked(tmp_path):
    probe = run_python(f"import ctypes; ctypes.CDLL('{LIBRARY}.0')", LD_LIBRARY_PATH="")
    probe_plain = run_python(f"import ctypes; ctypes.CDLL('{LIBRARY}')", LD_LIBRARY_PATH="")
    if probe.returncode == 0 or probe_plain.returncode == 0:
        pytest.skip(f"this machine has {LIBRARY} installed system-wide")
    copy_of_the_package_without_library(tmp_path)
    result = run_python("import ksi_polarization", LD_LIBRARY_PATH="", PYTHONPATH=str(tmp_path))
    assert result.returncode != 0
    assert f"ImportError: ksi_polarization found no {LIBRARY} in its package directory" in result.stderr
    assert str(tmp_path / "ksi_polarization") in result.stderr


def test_processors_count_the_module_and_release_it_when_closed_or_collected():
    # In a fresh process: the module stays initialised while any processor
    # lives, and a handle created directly through the library is refused
    # (status 2) once the last one is gone.
    code = """
import ctypes, gc
import numpy as np
import ksi_polarization as k
library = ctypes.CDLL(k.library_path())
handle = ctypes.c_void_p()
def create_status():
    status = library.kl_polarization_processor_create_polarization_processor(ctypes.byref(handle))
    if status == 0:
        library.kl_polarization_processor_destroy_polarization_processor(handle)
    return status
first, second = k.Processor(), k.Processor()
first.close(); first.close()
second.transform(np.zeros((4, 4), np.uint16), phase=0, bit_depth=8)
print(create_status())
del second; gc.collect()
print(create_status())
with k.Processor() as third:
    print(create_status())
print(create_status(), third.closed)
"""
    result = run_python(code)
    assert result.returncode == 0, result.stderr
    assert result.stdout.split() == ["0", "2", "0", "2", "True"]


PUBLIC_FUNCTIONS = [ksp.library_path, ksp.aolp_radians, ksp.aolp_degrees, ksp.dolp_fraction, ksp.colorize_aolp,
                    ksp.Processor.transform, ksp.Processor.close]


@pytest.mark.parametrize("function", PUBLIC_FUNCTIONS, ids=lambda function: function.__qualname__)
def test_public_functions_have_docstrings_and_type_hints(function):
    assert inspect.getdoc(function)
    signature = inspect.signature(function)
    assert signature.return_annotation is not inspect.Signature.empty
    for parameter in signature.parameters.values():
        if parameter.name != "self":
            assert parameter.annotation is not inspect.Parameter.empty, parameter.name


def test_every_public_function_and_class_is_documented():
    for name in ksp.__all__:
        value = getattr(ksp, name)
        if callable(value):
            assert inspect.getdoc(value), name
    assert inspect.getdoc(ksp.Processor.calibration)
    assert (PACKAGE_DIRECTORY / "py.typed").exists()


def test_help_of_transform_explains_phase_origin_and_outputs():
    text = inspect.getdoc(ksp.Processor.transform)
    for term in ("phase:", "origin:", "outputs:", "top left", "parity", "normalized", "aolp", "dolp"):
        assert term in text, term
