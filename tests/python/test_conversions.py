"""The helpers that turn output images into physical values and colours."""

from __future__ import annotations

import math

import numpy as np
import pytest

import ksi_polarization as ksp


def test_aolp_image_values_map_to_angles_from_minus_90_to_plus_90_degrees():
    image = np.array([0, 45, 90, 135, 180], dtype=np.uint16)
    np.testing.assert_allclose(ksp.aolp_degrees(image, 180), [-90.0, -45.0, 0.0, 45.0, 90.0], atol=1e-12)
    np.testing.assert_allclose(ksp.aolp_radians(image, 180),
                               [-math.pi / 2, -math.pi / 4, 0.0, math.pi / 4, math.pi / 2], atol=1e-12)
    np.testing.assert_allclose(ksp.aolp_degrees(np.array([0, 65535], dtype=np.uint16)), [-90.0, 90.0])
    assert ksp.aolp_degrees(np.zeros((3, 4), dtype=np.uint16), 4095).shape == (3, 4)


def test_dolp_image_values_map_to_fractions_from_0_to_1():
    image = np.array([0, 1000, 2000, 4000], dtype=np.uint16)
    np.testing.assert_allclose(ksp.dolp_fraction(image, 4000), [0.0, 0.25, 0.5, 1.0], atol=1e-15)
    np.testing.assert_allclose(ksp.dolp_fraction(np.array([65535], dtype=np.uint16)), [1.0])


def test_helpers_refuse_bad_arguments():
    with pytest.raises(ValueError, match="output_maximum must be 1 to 65535, not 0"):
        ksp.aolp_degrees(np.zeros(3, dtype=np.uint16), 0)
    with pytest.raises(TypeError, match="image must hold integers or floats, not <U1"):
        ksp.dolp_fraction(np.array(["a"]))
    with pytest.raises(ValueError, match=r"aolp has shape \(2, 3\) but dolp has shape \(3, 2\)"):
        ksp.colorize_aolp(np.zeros((2, 3), dtype=np.uint16), np.zeros((3, 2), dtype=np.uint16))
    with pytest.raises(TypeError, match="dolp must hold integers, not float64"):
        ksp.colorize_aolp(np.zeros(2, dtype=np.uint16), np.zeros(2))


@pytest.mark.parametrize("degrees,rgb", [
    (-90, (255, 0, 0)), (-60, (255, 255, 0)), (-30, (0, 255, 0)), (0, (0, 255, 255)),
    (30, (0, 0, 255)), (60, (255, 0, 255)), (90, (255, 0, 0)),
])
def test_colorize_gives_the_hue_of_the_angle_at_full_polarization(degrees, rgb):
    maximum = 180
    aolp = np.array([[degrees + 90]], dtype=np.uint16)
    dolp = np.array([[maximum]], dtype=np.uint16)
    picture = ksp.colorize_aolp(aolp, dolp, maximum)
    assert picture.dtype == np.uint8 and picture.shape == (1, 1, 3)
    assert tuple(picture[0, 0]) == rgb


def test_colorize_takes_its_brightness_from_the_degree_of_polarization():
    aolp = np.array([0, 0, 0, 30000], dtype=np.uint16)
    dolp = np.array([0, 32768, 65535, 0], dtype=np.uint16)
    picture = ksp.colorize_aolp(aolp, dolp)
    assert picture.shape == (4, 3)
    assert tuple(picture[0]) == (0, 0, 0)
    assert tuple(picture[1]) == (128, 0, 0)
    assert tuple(picture[2]) == (255, 0, 0)
    assert tuple(picture[3]) == (0, 0, 0)


def colour_of_one_pixel(a: int, d: int, maximum: int) -> tuple:
    h = min(a / maximum, 1.0)
    v = min(d / maximum, 1.0)
    h6 = 6.0 * h
    sector = math.floor(h6)
    f = h6 - sector
    q = v * (1.0 - f)
    t = v * f
    r, g, b = [(v, t, 0.0), (q, v, 0.0), (0.0, v, t), (0.0, q, v), (t, 0.0, v), (v, 0.0, q)][sector % 6]
    return tuple(math.floor(255.0 * x + 0.5) for x in (r, g, b))


def test_colorize_equals_the_pixel_by_pixel_definition_on_random_images():
    rng = np.random.default_rng(17)
    for maximum in (65535, 4095, 1000, 1):
        aolp = rng.integers(0, maximum + 1, size=(24, 31), dtype=np.uint16)
        dolp = rng.integers(0, maximum + 1, size=(24, 31), dtype=np.uint16)
        aolp[0, :6] = [0, maximum, maximum // 2, maximum // 3, maximum // 6, 2 * maximum // 3]
        picture = ksp.colorize_aolp(aolp, dolp, maximum)
        expected = np.array([[colour_of_one_pixel(int(a), int(d), maximum) for a, d in zip(row_a, row_d)]
                             for row_a, row_d in zip(aolp, dolp)], dtype=np.uint8)
        np.testing.assert_array_equal(picture, expected)


def synthetic_frame(angle_degrees: float, degree: float, height: int = 16, width: int = 20) -> np.ndarray:
    """A uniformly polarized scene under a phase-0 mosaic: the pixel under a
    polarizer at angle a sees I/2 (1 + p cos 2(a - angle))."""
    intensity = 3000.0
    polarizer = np.empty((height, width))
    polarizer[0::2, 0::2] = 0
    polarizer[0::2, 1::2] = 135
    polarizer[1::2, 0::2] = 45
    polarizer[1::2, 1::2] = 90
    pixels = intensity / 2 * (1 + degree * np.cos(np.radians(2 * (polarizer - angle_degrees))))
    return np.round(pixels).astype(np.uint16)


@pytest.mark.parametrize("angle", [-70.0, -30.0, 0.0, 20.0, 55.0, 80.0])
@pytest.mark.parametrize("degree", [0.2, 0.7])
def test_the_helpers_read_back_the_polarization_of_a_synthetic_scene(processor, angle, degree):
    images = processor.transform(synthetic_frame(angle, degree), phase=0, bit_depth=12, output_maximum=65535)
    # The library's arctangent is a fast approximation, good to a few tenths of a degree.
    np.testing.assert_allclose(ksp.aolp_degrees(images["aolp"]), angle, atol=0.6)
    np.testing.assert_allclose(ksp.aolp_radians(images["aolp"]), math.radians(angle), atol=math.radians(0.6))
    np.testing.assert_allclose(ksp.dolp_fraction(images["dolp"]), degree, atol=0.01)
