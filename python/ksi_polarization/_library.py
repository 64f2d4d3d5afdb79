"""Opens the polarization library and declares its C functions for ctypes.

The package prefers the library it was installed with: a build of the package
carries a copy inside its own directory, opened by absolute path so that no
search path can put another file first. A package installed without a copy
uses the system's installed library through the dynamic loader's usual
search.

Every function is called through ctypes.CDLL, which releases the global
interpreter lock for the duration of the call: threads transforming different
frames run in parallel.
"""

from __future__ import annotations

import ctypes
import os
from pathlib import Path

LIBRARY_FILE_NAME = "libkestrion_ksi_polarization_processor.so"

# The run-time name that an installed library answers to comes first: a
# run-time installation need not carry the unversioned development link.
_SYSTEM_LIBRARY_NAMES = (LIBRARY_FILE_NAME + ".0", LIBRARY_FILE_NAME)

_PACKAGE_DIRECTORY = Path(__file__).resolve().parent


def _open_library() -> ctypes.CDLL:
    bundled = _PACKAGE_DIRECTORY / LIBRARY_FILE_NAME
    if bundled.is_file():
        return ctypes.CDLL(str(bundled))
    failures = []
    for name in _SYSTEM_LIBRARY_NAMES:
        try:
            return ctypes.CDLL(name)
        except OSError as error:
            failures.append(str(error))
    raise ImportError(
        f"ksi_polarization found no {LIBRARY_FILE_NAME} in its package directory "
        f"{_PACKAGE_DIRECTORY} and the dynamic loader found no installed library: "
        + "; ".join(failures)
    )


library = _open_library()

_handle = ctypes.c_void_p
_matrix = ctypes.c_void_p

library.kl_polarization_processor_module_initialize.argtypes = []
library.kl_polarization_processor_module_initialize.restype = ctypes.c_int
library.kl_polarization_processor_module_terminate.argtypes = []
library.kl_polarization_processor_module_terminate.restype = ctypes.c_int
library.kl_polarization_processor_create_polarization_processor.argtypes = [ctypes.POINTER(_handle)]
library.kl_polarization_processor_create_polarization_processor.restype = ctypes.c_int
library.kl_polarization_processor_destroy_polarization_processor.argtypes = [_handle]
library.kl_polarization_processor_destroy_polarization_processor.restype = ctypes.c_int
library.kl_polarization_processor_set_custom_calibration_coefficients.argtypes = [_handle] + [_matrix] * 4
library.kl_polarization_processor_set_custom_calibration_coefficients.restype = ctypes.c_int
library.kl_polarization_processor_get_custom_calibration_coefficients.argtypes = [_handle] + [_matrix] * 4
library.kl_polarization_processor_get_custom_calibration_coefficients.restype = ctypes.c_int
# Buffers travel as plain addresses (numpy's array.ctypes.data), which keeps
# the per-call conversion cost to a few integer checks.
library.kl_polarization_processor_transform.argtypes = [
    _handle,  # processor
    ctypes.c_int32,  # polar_phase
    ctypes.c_void_p,  # input
    ctypes.c_int32,  # origin_x
    ctypes.c_int32,  # origin_y
    ctypes.c_int32,  # width
    ctypes.c_int32,  # height
    ctypes.c_uint32,  # bit_depth
    ctypes.c_uint16,  # output_maximum
] + [ctypes.c_void_p] * 6  # slots 0 to 5
library.kl_polarization_processor_transform.restype = ctypes.c_int


class _Dl_info(ctypes.Structure):
    _fields_ = [
        ("dli_fname", ctypes.c_char_p),
        ("dli_fbase", ctypes.c_void_p),
        ("dli_sname", ctypes.c_char_p),
        ("dli_saddr", ctypes.c_void_p),
    ]


def _loaded_file() -> str:
    """Asks the dynamic loader which file holds the transform function."""
    try:
        dladdr = ctypes.CDLL(None).dladdr
    except AttributeError:  # C libraries older than glibc 2.34 keep it in libdl
        dladdr = ctypes.CDLL("libdl.so.2").dladdr
    dladdr.argtypes = [ctypes.c_void_p, ctypes.POINTER(_Dl_info)]
    dladdr.restype = ctypes.c_int
    info = _Dl_info()
    address = ctypes.cast(library.kl_polarization_processor_transform, ctypes.c_void_p).value
    if not dladdr(address, ctypes.byref(info)) or not info.dli_fname:
        raise ImportError(f"the dynamic loader cannot tell which file holds {LIBRARY_FILE_NAME}")
    return os.path.abspath(os.fsdecode(info.dli_fname))


_LOADED_FILE = _loaded_file()


def library_path() -> str:
    """Return the absolute path of the polarization library this package uses.

    It is the copy inside the package directory when the package was built
    with one, otherwise the installed library the dynamic loader found.
    """
    return _LOADED_FILE
