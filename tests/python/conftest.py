"""Shared fixtures: the installed package, and an independent ctypes call of
the library's C transform that every comparison takes as its reference."""

from __future__ import annotations

import ctypes
import os
from pathlib import Path
from typing import Dict, Iterable, Optional, Tuple

import numpy as np
import pytest

import ksi_polarization as ksp

# Slot order of the C transform's six output arguments.
SLOT_OF_OUTPUT = {"normalized": 0, "s0": 1, "s1": 2, "s2": 3, "aolp": 4, "dolp": 5}
# Polar_phase enumerators of the C header, by polarizer angle.
PHASE_ENUMERATOR = {0: 0, 45: 1, 90: 2, 135: 3}


class CReference:
    """Calls kl_polarization_processor_transform directly, on its own handle,
    with buffers allocated here."""

    def __init__(self, path: str) -> None:
        self.library = ctypes.CDLL(path)
        self.library.kl_polarization_processor_create_polarization_processor.argtypes = [
            ctypes.POINTER(ctypes.c_void_p)
        ]
        matrices = [ctypes.c_void_p] * 4
        self.library.kl_polarization_processor_set_custom_calibration_coefficients.argtypes = [
            ctypes.c_void_p
        ] + matrices
        self.library.kl_polarization_processor_get_custom_calibration_coefficients.argtypes = [
            ctypes.c_void_p
        ] + matrices
        self.library.kl_polarization_processor_destroy_polarization_processor.argtypes = [ctypes.c_void_p]
        self.library.kl_polarization_processor_transform.argtypes = [
            ctypes.c_void_p, ctypes.c_int32, ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32,
            ctypes.c_int32, ctypes.c_int32, ctypes.c_uint32, ctypes.c_uint16,
        ] + [ctypes.c_void_p] * 6
        assert self.library.kl_polarization_processor_module_initialize() == 0
        handle = ctypes.c_void_p()
        assert self.library.kl_polarization_processor_create_polarization_processor(ctypes.byref(handle)) == 0
        self.handle = handle.value
        self.default_calibration = self._get_calibration()

    def _get_calibration(self) -> np.ndarray:
        matrices = np.zeros((4, 4, 4), dtype=np.float32)
        status = self.library.kl_polarization_processor_get_custom_calibration_coefficients(
            self.handle, *(m.ctypes.data for m in matrices)
        )
        assert status == 0
        return matrices

    def _set_calibration(self, matrices: np.ndarray) -> None:
        matrices = np.ascontiguousarray(matrices, dtype=np.float32)
        status = self.library.kl_polarization_processor_set_custom_calibration_coefficients(
            self.handle, *(m.ctypes.data for m in matrices)
        )
        assert status == 0

    def transform(
        self,
        frame: np.ndarray,
        *,
        phase: int,
        bit_depth: int,
        output_maximum: int,
        origin: Tuple[int, int] = (0, 0),
        outputs: Iterable[str],
        calibration: Optional[np.ndarray] = None,
    ) -> Dict[str, np.ndarray]:
        pixels = np.array(frame, dtype=np.uint16, order="C", copy=True)
        height, width = pixels.shape
        results = {}
        pointers = [None] * 6
        for name in outputs:
            if name == "normalized":
                results[name] = np.full(2 * height * width, np.nan, dtype=np.float32).reshape(height, width, 2)
            else:
                results[name] = np.zeros((height, width), dtype=np.uint16)
            pointers[SLOT_OF_OUTPUT[name]] = results[name].ctypes.data
        if calibration is not None:
            self._set_calibration(calibration)
        try:
            status = self.library.kl_polarization_processor_transform(
                self.handle, PHASE_ENUMERATOR[phase], pixels.ctypes.data, origin[0], origin[1],
                width, height, bit_depth, output_maximum, *pointers,
            )
        finally:
            if calibration is not None:
                self._set_calibration(self.default_calibration)
        assert status == 0
        return results

    def close(self) -> None:
        self.library.kl_polarization_processor_destroy_polarization_processor(self.handle)
        self.library.kl_polarization_processor_module_terminate()


@pytest.fixture(scope="session")
def reference() -> Iterable[CReference]:
    c_reference = CReference(ksp.library_path())
    yield c_reference
    c_reference.close()


@pytest.fixture
def processor() -> Iterable[ksp.Processor]:
    with ksp.Processor() as opened:
        yield opened


def assert_same_outputs(actual: Dict[str, np.ndarray], expected: Dict[str, np.ndarray]) -> None:
    """Element by element; the floats of `normalized` bit by bit, so that
    NaNs compare too."""
    assert list(actual) == list(expected)
    for name, expected_image in expected.items():
        image = actual[name]
        assert image.dtype == expected_image.dtype, name
        assert image.shape == expected_image.shape, name
        if name == "normalized":
            np.testing.assert_array_equal(image.view(np.uint32), expected_image.view(np.uint32), err_msg=name)
        else:
            np.testing.assert_array_equal(image, expected_image, err_msg=name)


def installed_venv() -> Optional[Path]:
    """The virtual environment ctest installed the package into, if any."""
    venv = os.environ.get("KSI_TEST_VENV")
    return Path(venv) if venv else None
