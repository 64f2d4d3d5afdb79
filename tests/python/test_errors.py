"""Refused arguments: the stated exception, a message naming the argument and
its value, and nothing written into the caller's out= arrays."""

from __future__ import annotations

import ctypes

import numpy as np
import pytest

import ksi_polarization as ksp

HEIGHT, WIDTH = 8, 10
SENTINEL = 0x5A5A


def good_frame() -> np.ndarray:
    return np.random.default_rng(1).integers(0, 4096, size=(HEIGHT, WIDTH), dtype=np.uint16)


def sentinel_out() -> dict:
    normalized = np.empty((HEIGHT, WIDTH, 2), dtype=np.float32)
    normalized.view(np.uint32)[...] = 0x7FC05A5A
    return {
        "normalized": normalized,
        "s0": np.full((HEIGHT, WIDTH), SENTINEL, dtype=np.uint16),
        "aolp": np.full((HEIGHT, WIDTH), SENTINEL, dtype=np.uint16),
        "dolp": np.full((HEIGHT, WIDTH), SENTINEL, dtype=np.uint16),
    }


def assert_untouched(out: dict) -> None:
    assert (out["normalized"].view(np.uint32) == 0x7FC05A5A).all()
    for name in ("s0", "aolp", "dolp"):
        assert (out[name] == SENTINEL).all(), name


GOOD = dict(phase=0, bit_depth=12, output_maximum=4095, origin=(0, 0), outputs=("normalized", "s0", "aolp", "dolp"))

# (changed arguments, exception, pattern the message must match)
ARGUMENT_ERRORS = {
    "float frame": (dict(frame=np.zeros((HEIGHT, WIDTH), dtype=np.float32)), TypeError, r"frame .*uint16 or uint8, not float32"),
    "signed frame": (dict(frame=np.zeros((HEIGHT, WIDTH), dtype=np.int16)), TypeError, r"frame .*not int16"),
    "wide frame": (dict(frame=np.zeros((HEIGHT, WIDTH), dtype=np.uint32)), TypeError, r"frame .*not uint32"),
    "list frame": (dict(frame=[[1, 2], [3, 4]]), TypeError, r"frame must be a numpy array, not list"),
    "3-D frame": (dict(frame=np.zeros((2, HEIGHT, WIDTH), dtype=np.uint16)), TypeError, r"frame must have 2 dimensions .*not 3"),
    "1-D frame": (dict(frame=np.zeros(16, dtype=np.uint16)), TypeError, r"frame must have 2 dimensions .*not 1"),
    "one row": (dict(frame=np.zeros((1, WIDTH), dtype=np.uint16)), ValueError, r"frame must be at least 2x2 pixels, not 1x10"),
    "one column": (dict(frame=np.zeros((HEIGHT, 1), dtype=np.uint16)), ValueError, r"frame must be at least 2x2 pixels, not 8x1"),
    "empty frame": (dict(frame=np.zeros((0, 0), dtype=np.uint16)), ValueError, r"not 0x0"),
    "phase 30": (dict(phase=30), ValueError, r"phase must be 0, 45, 90 or 135 \(degrees\), not 30"),
    "phase code": (dict(phase=1), ValueError, r"phase .*not 1"),
    "phase -45": (dict(phase=-45), ValueError, r"phase .*not -45"),
    "phase text": (dict(phase="45"), ValueError, r"phase .*not '45'"),
    "bit depth 0": (dict(bit_depth=0), ValueError, r"bit_depth must be 1 to 16, not 0"),
    "bit depth 17": (dict(bit_depth=17), ValueError, r"bit_depth must be 1 to 16, not 17"),
    "bit depth float": (dict(bit_depth=12.0), TypeError, r"bit_depth must be an integer, not float 12.0"),
    "output maximum 0": (dict(output_maximum=0), ValueError, r"output_maximum must be 1 to 65535, not 0"),
    "output maximum 65536": (dict(output_maximum=65536), ValueError, r"output_maximum must be 1 to 65535, not 65536"),
    "origin of one": (dict(origin=(1,)), ValueError, r"origin must be a pair \(x, y\) of integers, not \(1,\)"),
    "origin of three": (dict(origin=(1, 2, 3)), ValueError, r"origin must be a pair .*not \(1, 2, 3\)"),
    "origin number": (dict(origin=5), ValueError, r"origin must be a pair .*not 5"),
    "origin too far": (dict(origin=(2**31, 0)), ValueError, r"origin x must be -2147483648 to 2147483647, not 2147483648"),
    "origin float": (dict(origin=(0, 1.5)), TypeError, r"origin y must be an integer, not float 1.5"),
    "unknown output": (dict(outputs=("s0", "azimuth")), ValueError, r"outputs has 'azimuth', which is none of normalized, s0"),
    "no output": (dict(outputs=()), ValueError, r"outputs is empty"),
    "outputs number": (dict(outputs=3), TypeError, r"outputs must be an output name or an iterable of names, not 3"),
}


@pytest.mark.parametrize("case", list(ARGUMENT_ERRORS))
def test_a_refused_argument_raises_and_leaves_out_untouched(processor, case):
    changes, exception, pattern = ARGUMENT_ERRORS[case]
    arguments = dict(GOOD, **changes)
    frame = arguments.pop("frame", good_frame())
    out = sentinel_out()
    with pytest.raises(exception, match=pattern):
        processor.transform(frame, out=out, **arguments)
    assert_untouched(out)


def wrong_out(case: str, frame: np.ndarray) -> dict:
    out = sentinel_out()
    if case == "dtype":
        out["aolp"] = np.full((HEIGHT, WIDTH), SENTINEL, dtype=np.int32)
    elif case == "normalized dtype":
        out["normalized"] = np.zeros((HEIGHT, WIDTH, 2), dtype=np.float64)
    elif case == "shape":
        out["aolp"] = np.full((WIDTH, HEIGHT), SENTINEL, dtype=np.uint16)
    elif case == "normalized shape":
        out["normalized"] = np.zeros((HEIGHT, WIDTH), dtype=np.float32)
    elif case == "not contiguous":
        out["aolp"] = np.full((HEIGHT, 2 * WIDTH), SENTINEL, dtype=np.uint16)[:, ::2]
    elif case == "read only":
        out["aolp"] = np.full((HEIGHT, WIDTH), SENTINEL, dtype=np.uint16)
        out["aolp"].flags.writeable = False
    elif case == "misaligned":
        storage = np.full(HEIGHT * WIDTH * 2 + 1, 0x5A, dtype=np.uint8)
        out["aolp"] = storage[1:].view(np.uint16).reshape(HEIGHT, WIDTH)
    elif case == "not an array":
        out["aolp"] = [[0] * WIDTH] * HEIGHT
    elif case == "not requested":
        out["s2"] = np.zeros((HEIGHT, WIDTH), dtype=np.uint16)
    elif case == "is the frame":
        out["aolp"] = frame
    elif case == "shared":
        out["aolp"] = out["dolp"]
    return out


OUT_ERRORS = {
    "dtype": (TypeError, r"out\['aolp'\] must have dtype uint16, not int32"),
    "normalized dtype": (TypeError, r"out\['normalized'\] must have dtype float32, not float64"),
    "shape": (ValueError, r"out\['aolp'\] must have shape \(8, 10\), not \(10, 8\)"),
    "normalized shape": (ValueError, r"out\['normalized'\] must have shape \(8, 10, 2\), not \(8, 10\)"),
    "not contiguous": (ValueError, r"out\['aolp'\] is not C-contiguous"),
    "read only": (ValueError, r"out\['aolp'\] is not writeable"),
    "misaligned": (ValueError, r"out\['aolp'\] is not aligned"),
    "not an array": (TypeError, r"out\['aolp'\] must be a numpy array, not list"),
    "not requested": (ValueError, r"out has 's2', which is not among the requested outputs"),
    "is the frame": (ValueError, r"out\['aolp'\] shares memory with frame"),
    "shared": (ValueError, r"out\['dolp'\] and out\['aolp'\] share memory"),
}


@pytest.mark.parametrize("case", list(OUT_ERRORS))
def test_a_refused_out_array_raises_and_leaves_every_out_array_untouched(processor, case):
    exception, pattern = OUT_ERRORS[case]
    frame = good_frame()
    frame_before = frame.copy()
    out = wrong_out(case, frame)
    out_before = {name: array.tobytes() for name, array in out.items() if isinstance(array, np.ndarray)}
    with pytest.raises(exception, match=pattern):
        processor.transform(frame, out=out, **GOOD)
    np.testing.assert_array_equal(frame, frame_before)
    for name, content in out_before.items():
        assert out[name].tobytes() == content, name


def test_out_that_is_no_mapping_is_a_type_error(processor):
    with pytest.raises(TypeError, match=r"out must be a mapping from output name to array, not list"):
        processor.transform(good_frame(), out=[np.zeros((HEIGHT, WIDTH), dtype=np.uint16)], **GOOD)


def test_a_library_status_becomes_an_exception_naming_the_code(processor):
    # Another client of the library in this process terminates the module
    # once more than it initialised it; the processor's next transform is
    # then refused by the library itself.
    library = ctypes.CDLL(ksp.library_path())
    library.kl_polarization_processor_module_terminate()
    out = sentinel_out()
    try:
        with pytest.raises(ksp.StatusError, match=r"kl_polarization_processor_transform returned 2 "
                                                  r"\(status_module_not_initialized") as raised:
            processor.transform(good_frame(), out=out, **GOOD)
    finally:
        library.kl_polarization_processor_module_initialize()
    assert raised.value.code == 2
    assert raised.value.name == "status_module_not_initialized"
    assert_untouched(out)


def test_a_closed_processor_refuses_work(processor):
    processor.close()
    assert processor.closed
    out = sentinel_out()
    with pytest.raises(ValueError, match="the processor is closed"):
        processor.transform(good_frame(), out=out, **GOOD)
    with pytest.raises(ValueError, match="the processor is closed"):
        processor.calibration
    assert_untouched(out)
