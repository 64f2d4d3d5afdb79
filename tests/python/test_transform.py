"""The binding's transform against the library's C transform called directly."""

from __future__ import annotations

import itertools
import tracemalloc

import numpy as np
import pytest

import ksi_polarization as ksp
from conftest import SLOT_OF_OUTPUT, assert_same_outputs

ALL_OUTPUTS = tuple(SLOT_OF_OUTPUT)
SIZES = [(2, 2), (2, 3), (3, 2), (3, 3), (2, 9), (9, 2), (4, 4), (5, 7), (7, 5), (8, 8), (6, 11),
         (13, 10), (16, 17), (31, 33), (40, 64), (97, 123), (256, 258)]


def random_frame(rng: np.random.Generator, height: int, width: int, bit_depth: int) -> np.ndarray:
    return rng.integers(0, 2**bit_depth, size=(height, width), dtype=np.uint16)


@pytest.mark.parametrize("height,width", SIZES)
def test_every_output_equals_the_c_transform(reference, processor, height, width):
    rng = np.random.default_rng(height * 1000 + width)
    for phase in (0, 45, 90, 135):
        for _ in range(6):
            bit_depth = int(rng.integers(1, 17))
            native_maximum = 2**bit_depth - 1
            output_maximum = int(rng.choice([native_maximum, 65535, 255, int(rng.integers(1, 65536))]))
            origin = (int(rng.integers(-5, 6)), int(rng.integers(-5, 6)))
            slot_set = int(rng.integers(1, 64))
            outputs = tuple(name for name in ALL_OUTPUTS if slot_set >> SLOT_OF_OUTPUT[name] & 1)
            frame = random_frame(rng, height, width, bit_depth)
            arguments = dict(phase=phase, bit_depth=bit_depth, output_maximum=output_maximum, origin=origin)
            actual = processor.transform(frame, outputs=outputs, **arguments)
            expected = reference.transform(frame, outputs=outputs, **arguments)
            assert_same_outputs(actual, expected)


def test_every_slot_set_equals_the_c_transform(reference, processor):
    rng = np.random.default_rng(7)
    frame = random_frame(rng, 18, 22, 12)
    for count in range(1, 7):
        for outputs in itertools.combinations(ALL_OUTPUTS, count):
            arguments = dict(phase=45, bit_depth=12, output_maximum=4095, origin=(3, 1), outputs=outputs)
            assert_same_outputs(processor.transform(frame, **arguments), reference.transform(frame, **arguments))


def test_default_outputs_are_s0_aolp_and_dolp(reference, processor):
    frame = random_frame(np.random.default_rng(8), 12, 14, 10)
    actual = processor.transform(frame, phase=90, bit_depth=10)
    expected = reference.transform(frame, phase=90, bit_depth=10, output_maximum=65535, outputs=("s0", "aolp", "dolp"))
    assert_same_outputs(actual, expected)


def test_a_single_output_name_may_be_given_as_a_string(reference, processor):
    frame = random_frame(np.random.default_rng(9), 6, 6, 8)
    actual = processor.transform(frame, phase=0, bit_depth=8, outputs="normalized")
    expected = reference.transform(frame, phase=0, bit_depth=8, output_maximum=65535, outputs=("normalized",))
    assert_same_outputs(actual, expected)


def test_custom_calibration_equals_the_c_transform_with_the_same_matrices(reference, processor):
    rng = np.random.default_rng(11)
    matrices = rng.uniform(-2.0, 2.0, size=(4, 4, 4)).astype(np.float32)
    processor.calibration = matrices
    np.testing.assert_array_equal(processor.calibration.view(np.uint32), matrices.view(np.uint32))
    for height, width in [(2, 2), (3, 5), (9, 9), (30, 41), (64, 67)]:
        for phase in (0, 45, 90, 135):
            frame = random_frame(rng, height, width, 12)
            arguments = dict(phase=phase, bit_depth=12, output_maximum=65535, origin=(1, 0), outputs=ALL_OUTPUTS)
            expected = reference.transform(frame, calibration=matrices, **arguments)
            assert_same_outputs(processor.transform(frame, **arguments), expected)
    # The custom matrices reach the edge pixels: the default ones give other values there.
    frame = random_frame(rng, 9, 9, 12)
    default = reference.transform(frame, phase=0, bit_depth=12, output_maximum=65535, outputs=("s0",))
    custom = processor.transform(frame, phase=0, bit_depth=12, outputs=("s0",))
    assert not np.array_equal(default["s0"], custom["s0"])


def test_calibration_starts_at_the_default_matrices(processor):
    own, horizontal, vertical, diagonal = np.eye(4, dtype=np.float32)
    s0 = own + horizontal + vertical + diagonal
    expected = np.array([
        [s0, own - diagonal, vertical - horizontal, 0 * own],       # 0 degrees
        [s0, vertical - horizontal, own - diagonal, 0 * own],       # 45 degrees
        [s0, diagonal - own, horizontal - vertical, 0 * own],       # 90 degrees
        [s0, horizontal - vertical, diagonal - own, 0 * own],       # 135 degrees
    ], dtype=np.float32)
    calibration = processor.calibration
    assert calibration.dtype == np.float32 and calibration.shape == (4, 4, 4)
    np.testing.assert_array_equal(calibration, expected)


def test_calibration_of_a_wrong_shape_is_refused(processor):
    before = processor.calibration
    with pytest.raises(ValueError, match=r"calibration must have shape \(4, 4, 4\), not \(4, 16\)"):
        processor.calibration = np.zeros((4, 16), dtype=np.float32)
    np.testing.assert_array_equal(processor.calibration, before)


@pytest.mark.parametrize("layout", ["strided", "uint8", "fortran", "sliced", "big_endian", "misaligned"])
def test_other_frame_layouts_give_the_results_of_their_contiguous_uint16_copy(processor, layout):
    rng = np.random.default_rng(21)
    base = rng.integers(0, 256, size=(40, 46), dtype=np.uint16)
    if layout == "strided":
        frame = base[::2, ::3]
    elif layout == "uint8":
        frame = base.astype(np.uint8)
    elif layout == "fortran":
        frame = np.asfortranarray(base)
    elif layout == "sliced":
        frame = base[5:31, 7:40]
    elif layout == "big_endian":
        frame = base.astype(">u2")
    else:
        storage = np.zeros(base.size * 2 + 1, dtype=np.uint8)
        frame = storage[1:].view(np.uint16).reshape(base.shape)
        frame[...] = base
        assert not frame.flags.aligned
    copy = np.array(frame, dtype=np.uint16, order="C")
    arguments = dict(phase=135, bit_depth=8, output_maximum=1000, origin=(1, 1), outputs=ALL_OUTPUTS)
    assert_same_outputs(processor.transform(frame, **arguments), processor.transform(copy, **arguments))


def peak_bytes_during(action) -> int:
    tracemalloc.start()
    try:
        action()
        return tracemalloc.get_traced_memory()[1]
    finally:
        tracemalloc.stop()


def test_a_contiguous_uint16_frame_is_used_without_a_copy(processor):
    frame = np.random.default_rng(3).integers(0, 4096, size=(512, 600), dtype=np.uint16)
    out = {"s0": np.empty(frame.shape, dtype=np.uint16)}
    peak = peak_bytes_during(lambda: processor.transform(frame, phase=0, bit_depth=12, outputs=("s0",), out=out))
    assert peak < frame.nbytes // 10
    # A frame that must be converted is converted once, into one new frame.
    narrow = frame.astype(np.uint8)
    peak = peak_bytes_during(lambda: processor.transform(narrow, phase=0, bit_depth=8, outputs=("s0",), out=out))
    assert frame.nbytes <= peak < 2 * frame.nbytes


def test_out_arrays_receive_the_outputs_and_are_returned(reference, processor):
    frame = random_frame(np.random.default_rng(5), 20, 24, 12)
    out = {
        "normalized": np.zeros((20, 24, 2), dtype=np.float32),
        "dolp": np.zeros((20, 24), dtype=np.uint16),
    }
    outputs = ("normalized", "s1", "dolp")
    result = processor.transform(frame, phase=45, bit_depth=12, outputs=outputs, out=out)
    assert result["normalized"] is out["normalized"] and result["dolp"] is out["dolp"]
    expected = reference.transform(frame, phase=45, bit_depth=12, output_maximum=65535, outputs=outputs)
    assert_same_outputs(result, expected)
