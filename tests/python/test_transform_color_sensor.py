"""Colour polarization sensors and the glare images through the package,
against the test's own model: planes cut out pixel by pixel, the library's C
transform of each through ctypes, the combination in double precision with
numpy's arctan2 (within one unit), imin and imax by their integer formula.

The file's name sorts after test_errors.py, whose refusal by the library
needs the module held by no session-wide reference yet."""

from __future__ import annotations

from typing import Dict, List, Sequence, Tuple

import numpy as np
import pytest

import ksi_polarization as ksp

ORDERS = ("rggb", "bggr", "grbg", "gbrg")
COLOR_OUTPUTS = ("s0_color", "aolp", "dolp", "imin", "imax", "aolp_r", "aolp_g", "aolp_b", "dolp_r", "dolp_g", "dolp_b")
# Planes R, G1, G2, B as indices 0..3; each output's members.
CHANNEL_MEMBERS = {"": (0, 1, 2, 3), "_r": (0,), "_g": (1, 2), "_b": (3,)}


def plane_index(order: str, x: int, y: int) -> int:
    """Plane of sensor pixel (x, y): 0 R, 1 G1 (green of a super-pixel's top row), 2 G2, 3 B."""
    quartet_x, quartet_y = (x // 2) % 2, (y // 2) % 2
    color = order[2 * quartet_y + quartet_x]
    if color == "g":
        return 1 if quartet_y == 0 else 2
    return 0 if color == "r" else 3


def cut_planes(frame: np.ndarray, order: str, origin: Tuple[int, int]) -> Tuple[List[np.ndarray], int, int]:
    height, width = frame.shape
    plane_height, plane_width = 2 * (height // 4), 2 * (width // 4)
    planes = [np.zeros((plane_height, plane_width), dtype=np.uint16) for _ in range(4)]
    for y in range(2 * plane_height):
        for x in range(2 * plane_width):
            plane = plane_index(order, origin[0] + x, origin[1] + y)
            planes[plane][2 * (y // 4) + y % 2, 2 * (x // 4) + x % 2] = frame[y, x]
    return planes, plane_height, plane_width


def model(reference, frame, *, phase, bit_depth, output_maximum, origin, order) -> Dict[str, np.ndarray]:
    """Unrounded expectations of every colour output, and the library's plane outputs."""
    planes, height, width = cut_planes(frame, order, origin)
    outputs = [
        reference.transform(plane, phase=phase, bit_depth=bit_depth, output_maximum=output_maximum,
                            outputs=("normalized", "s0"))
        for plane in planes
    ]
    s0 = [o["s0"].astype(np.float64) for o in outputs]
    expected: Dict[str, np.ndarray] = {"planes_s0": np.stack([o["s0"] for o in outputs])}
    for suffix, members in CHANNEL_MEMBERS.items():
        total = np.zeros((height, width))
        s1 = np.zeros((height, width))
        s2 = np.zeros((height, width))
        for member in members:
            n = outputs[member]["normalized"].astype(np.float64)
            valid = (s0[member] > 0) & np.isfinite(n[..., 0]) & np.isfinite(n[..., 1])
            total += s0[member]
            s1 += np.where(valid, s0[member] * np.nan_to_num(n[..., 0]), 0)
            s2 += np.where(valid, s0[member] * np.nan_to_num(n[..., 1]), 0)
        angle = 0.5 * np.arctan2(s2, s1)
        expected["aolp" + suffix] = (angle + np.pi / 2) / np.pi * output_maximum
        with np.errstate(invalid="ignore", divide="ignore"):
            expected["dolp" + suffix] = np.where(
                total > 0, np.minimum(1.0, np.hypot(s1, s2) / total) * output_maximum, 0.0
            )
    return expected


def assert_within_one_unit(images: Dict[str, np.ndarray], expected: Dict[str, np.ndarray], maximum: int) -> None:
    planes_s0 = expected["planes_s0"].astype(np.uint32)
    rgb = images["s0_color"]
    np.testing.assert_array_equal(rgb[..., 0], planes_s0[0])
    np.testing.assert_array_equal(rgb[..., 1], (planes_s0[1] + planes_s0[2] + 1) // 2)
    np.testing.assert_array_equal(rgb[..., 2], planes_s0[3])
    for suffix in CHANNEL_MEMBERS:
        difference = np.abs(images["aolp" + suffix] - expected["aolp" + suffix])
        assert np.minimum(difference, maximum - difference).max() <= 1.0, "aolp" + suffix
        assert np.abs(images["dolp" + suffix] - expected["dolp" + suffix]).max() <= 1.0, "dolp" + suffix
    mean = (planes_s0.sum(axis=0) + 2) // 4
    dolp = images["dolp"].astype(np.uint64)
    m = np.uint64(maximum)
    np.testing.assert_array_equal(images["imin"], (mean * (m - dolp) + m) // (2 * m))
    np.testing.assert_array_equal(images["imax"], np.minimum(m, (mean * (m + dolp) + m) // (2 * m)))


@pytest.mark.parametrize("order", ORDERS)
@pytest.mark.parametrize(
    "size, origin",
    [((16, 20), (0, 0)), ((21, 30), (2, 0)), ((13, 9), (0, 2)), ((22, 37), (-2, 6)), ((4, 4), (6, 10))],
)
def test_every_output_against_the_model(processor, reference, order, size, origin):
    seed = sum(map(ord, order)) * 7 + size[0]
    frame = np.random.default_rng(seed).integers(0, 4096, size=size, dtype=np.uint16)
    phase = (0, 45, 90, 135)[seed % 4]
    maximum = 65535 if seed % 2 else 4095
    images = processor.transform(
        frame, phase=phase, bit_depth=12, output_maximum=maximum, origin=origin, outputs=COLOR_OUTPUTS,
        sensor="color", color_order=order,
    )
    assert list(images) == list(COLOR_OUTPUTS)
    height, width = 2 * (size[0] // 4), 2 * (size[1] // 4)
    for name, image in images.items():
        assert image.dtype == np.uint16, name
        assert image.shape == ((height, width, 3) if name == "s0_color" else (height, width)), name
    expected = model(reference, frame, phase=phase, bit_depth=12, output_maximum=maximum, origin=origin, order=order)
    assert_within_one_unit(images, expected, maximum)


def render(order: str, origin: Tuple[int, int], shape: Tuple[int, int], patches: Sequence) -> np.ndarray:
    """A noise-free 12-bit mosaic of four quadrants of known colour, degree and angle, phase 0."""
    height, width = shape
    polarizer = np.array([[0.0, 135.0], [45.0, 90.0]])
    frame = np.zeros(shape, dtype=np.uint16)
    for y in range(height):
        for x in range(width):
            intensity, degree, angle = patches[2 * (y >= height // 2) + (x >= width // 2)]
            plane = plane_index(order, origin[0] + x, origin[1] + y)
            channel = (0, 1, 1, 2)[plane]
            analyser = np.radians(2 * (angle - polarizer[(origin[1] + y) % 2, (origin[0] + x) % 2]))
            frame[y, x] = round(intensity[channel] / 2 * (1 + degree * np.cos(analyser)))
    return frame


def test_quadrants_of_known_colour_angle_and_degree(processor):
    patches = [((3000, 800, 400), 0.9, -60), ((500, 2800, 700), 0.4, 15),
               ((600, 900, 3500), 0.7, 80), ((2000, 2000, 2000), 0.0, 0)]
    frame = render("grbg", (2, 2), (48, 64), patches)
    images = processor.transform(frame, phase=0, bit_depth=12, origin=(2, 2), outputs=("s0_color", "aolp", "dolp", "imin"),
                                 sensor="color", color_order="grbg")
    scale = 65535 / 4095
    for quadrant, (intensity, degree, angle) in enumerate(patches):
        y, x = quadrant // 2 * 12 + 6, quadrant % 2 * 16 + 8
        assert np.abs(images["s0_color"][y, x] - np.array(intensity) * scale).max() <= scale + 1
        assert abs(images["dolp"][y, x] / 65535 - degree) < 2e-3
        if degree:
            measured = images["aolp"][y, x] / 65535 * 180 - 90
            assert abs(np.remainder(measured - angle + 90, 180) - 90) < 0.05
        mean = (intensity[0] + 2 * intensity[1] + intensity[2]) / 4 * scale
        assert abs(images["imin"][y, x] - mean * (1 - degree) / 2) < 0.003 * mean + 1


def test_mono_imin_and_imax_are_the_integer_formula(processor, reference):
    frame = np.random.default_rng(5).integers(0, 4096, size=(31, 40), dtype=np.uint16)
    for maximum in (65535, 4095, 777):
        images = processor.transform(frame, phase=45, bit_depth=12, output_maximum=maximum, origin=(1, 1),
                                     outputs=("imin", "imax", "dolp"))
        assert list(images) == ["imin", "imax", "dolp"]
        library = reference.transform(frame, phase=45, bit_depth=12, output_maximum=maximum, origin=(1, 1),
                                      outputs=("s0", "dolp"))
        s0, dolp, m = library["s0"].astype(np.uint64), library["dolp"].astype(np.uint64), np.uint64(maximum)
        np.testing.assert_array_equal(images["dolp"], library["dolp"])
        np.testing.assert_array_equal(images["imin"], (s0 * (m - dolp) + m) // (2 * m))
        np.testing.assert_array_equal(images["imax"], np.minimum(m, (s0 * (m + dolp) + m) // (2 * m)))
        np.testing.assert_array_equal(ksp.imin(library["s0"], library["dolp"], maximum), images["imin"])
        np.testing.assert_array_equal(ksp.imax(library["s0"], library["dolp"], maximum), images["imax"])


def test_out_arrays_receive_the_colour_outputs(processor):
    frame = np.random.default_rng(8).integers(0, 4096, size=(18, 26), dtype=np.uint16)
    out = {"s0_color": np.zeros((8, 12, 3), dtype=np.uint16), "imax": np.zeros((8, 12), dtype=np.uint16)}
    images = processor.transform(frame, phase=0, bit_depth=12, outputs=("s0_color", "imax", "dolp"), out=out,
                                 sensor="color")
    assert images["s0_color"] is out["s0_color"] and images["imax"] is out["imax"]
    fresh = processor.transform(frame, phase=0, bit_depth=12, outputs=("s0_color", "imax"), sensor="color")
    np.testing.assert_array_equal(out["s0_color"], fresh["s0_color"])
    np.testing.assert_array_equal(out["imax"], fresh["imax"])
    assert processor.transform(frame, phase=0, bit_depth=12, sensor="color").keys() == {"s0_color", "aolp", "dolp"}


SENTINEL = 0x5A5A


@pytest.mark.parametrize(
    "frame_shape, changes, pattern",
    [
        ((3, 8), {}, r"frame of 3x8 pixels \(height x width\) is smaller than one colour super-pixel \(4x4\)"),
        ((8, 3), {}, r"smaller than one colour super-pixel"),
        ((8, 8), {"color_order": "rgbg"}, r"color_order must be one of rggb, bggr, grbg, gbrg, not 'rgbg'"),
        ((8, 8), {"sensor": "colour"}, r"sensor must be 'mono' or 'color', not 'colour'"),
        ((8, 8), {"origin": (1, 0)}, r"origin \(1, 0\) starts inside a polarizer quartet"),
        ((8, 8), {"outputs": ("s0",)}, r"outputs has 's0', which is none of s0_color, .* \(the color sensor's outputs\)"),
        ((8, 8), {"sensor": "mono", "outputs": ("s0_color",)}, r"outputs has 's0_color', which is none of normalized, .* \(the mono sensor's outputs\)"),
    ],
)
def test_refusals_name_the_problem_and_write_nothing(processor, frame_shape, changes, pattern):
    frame = np.random.default_rng(2).integers(0, 4096, size=frame_shape, dtype=np.uint16)
    out = {"dolp": np.full((4, 4), SENTINEL, dtype=np.uint16)}
    arguments = dict(phase=0, bit_depth=12, outputs=("dolp", "imin"), sensor="color", out=out)
    arguments.update(changes)
    if "outputs" in changes:
        arguments.pop("out")
    with pytest.raises(ValueError, match=pattern):
        processor.transform(frame, **arguments)
    assert (out["dolp"] == SENTINEL).all()


def test_wrong_out_shape_for_a_colour_output(processor):
    frame = np.zeros((8, 8), dtype=np.uint16)
    with pytest.raises(ValueError, match=r"out\['s0_color'\] must have shape \(4, 4, 3\)"):
        processor.transform(frame, phase=0, bit_depth=12, outputs=("s0_color",), sensor="color",
                            out={"s0_color": np.zeros((4, 4), dtype=np.uint16)})


@pytest.mark.parametrize("function", [ksp.imin, ksp.imax])
def test_glare_helpers_refuse_missing_or_mismatched_inputs(function):
    s0 = np.full((3, 4), 1000, dtype=np.uint16)
    dolp = np.full((3, 4), 500, dtype=np.uint16)
    name = function.__name__
    with pytest.raises(ValueError, match=rf"{name} needs the s0 and dolp images of one frame, but dolp is None"):
        function(s0, None)
    with pytest.raises(ValueError, match=rf"{name} needs the s0 and dolp images of one frame, but s0 is None"):
        function(None, dolp)
    with pytest.raises(ValueError, match=r"s0 has shape \(3, 4\) but dolp has shape \(4, 3\)"):
        function(s0, dolp.T)
    with pytest.raises(TypeError, match=r"dolp must hold integers, not float64"):
        function(s0, dolp.astype(np.float64))
    with pytest.raises(ValueError, match=r"dolp has values outside 0 to output_maximum 400"):
        function(np.minimum(s0, 400), dolp, 400)
    expected = (1000 * (65535 - 500) + 65535) // (2 * 65535) if name == "imin" else (1000 * 66035 + 65535) // 131070
    assert (function(s0, dolp) == expected).all()
