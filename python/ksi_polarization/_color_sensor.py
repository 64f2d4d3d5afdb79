"""Colour polarization sensors: the colour planes of a frame, and the Stokes
vector summed over planes with its angle and degree as 16-bit elements.

A colour sensor repeats a 4x4 super-pixel of four 2x2 polarizer quartets,
each under one colour filter, the quartets in Bayer order. Every step of the
combination below is a basic IEEE double operation in the order in which the
``ksi-polarization`` tool evaluates it, and the arctangent is our own rather
than numpy's (whose arctan2 may differ from the C library's in the last
bit), so that the package and the tool give the same elements.
"""

from __future__ import annotations

import math
from typing import Dict, NamedTuple, Sequence, Tuple

import numpy as np
import numpy.typing as npt

COLOR_ORDERS: Tuple[str, ...] = ("rggb", "bggr", "grbg", "gbrg")
"""Bayer orders of the quartets of the sensor's top-left super-pixel."""

PLANES: Tuple[str, ...] = ("R", "G1", "G2", "B")
"""The colour planes, in the order in which the combined Stokes vector sums them."""

# The plane of each quartet of the sensor's top-left super-pixel (top left,
# top right, bottom left, bottom right); G1 is the green quartet of the top
# quartet row.
_QUARTET_PLANES = {
    "rggb": ("R", "G1", "G2", "B"),
    "bggr": ("B", "G1", "G2", "R"),
    "grbg": ("G1", "R", "B", "G2"),
    "gbrg": ("G1", "B", "R", "G2"),
}

# The per-colour images and the planes each sums.
CHANNELS: Tuple[Tuple[str, str, Tuple[str, ...]], ...] = (
    ("aolp_r", "dolp_r", ("R",)),
    ("aolp_g", "dolp_g", ("G1", "G2")),
    ("aolp_b", "dolp_b", ("B",)),
)

_PI = 3.141592653589793
_HALF_PI = _PI / 2
_QUARTER_PI = _PI / 4
_TWO_PI = 2 * _PI
_TAN_PI_8 = math.sqrt(2.0) - 1.0
# (-1)^k / (2k + 1): the first 13 terms of the arctangent's series.
_SERIES = tuple((1.0 if k % 2 == 0 else -1.0) / (2 * k + 1) for k in range(13))


class PlanePlace(NamedTuple):
    quartet_column: int  # the plane's quartets start at frame column 4 k + 2 quartet_column
    quartet_row: int
    origin: Tuple[int, int]  # its first pixel in the whole sensor's plane


class ColorLayout(NamedTuple):
    plane_width: int
    plane_height: int
    places: Dict[str, PlanePlace]


def color_layout(width: int, height: int, origin: Tuple[int, int], order: str) -> ColorLayout:
    """Where each plane lies in a frame whose first pixel sits at the sensor position ``origin``.

    The caller has checked that the origin is even and the frame at least 4x4.
    """
    origin_x, origin_y = origin
    shift_x = (origin_x % 4) // 2
    shift_y = (origin_y % 4) // 2
    places = {}
    for position, plane in enumerate(_QUARTET_PLANES[order]):
        quartet_row = (position // 2) ^ shift_y
        quartet_column = (position % 2) ^ shift_x
        places[plane] = PlanePlace(
            quartet_column,
            quartet_row,
            (2 * ((origin_x + 2 * quartet_column) // 4), 2 * ((origin_y + 2 * quartet_row) // 4)),
        )
    return ColorLayout(2 * (width // 4), 2 * (height // 4), places)


def extract_plane(pixels: npt.NDArray[np.uint16], layout: ColorLayout, plane: str) -> npt.NDArray[np.uint16]:
    """The plane's quartets side by side, a new C-contiguous array."""
    place = layout.places[plane]
    super_rows, super_columns = layout.plane_height // 2, layout.plane_width // 2
    blocks = pixels[: 4 * super_rows, : 4 * super_columns].reshape(super_rows, 2, 2, super_columns, 2, 2)
    quartets = blocks[:, place.quartet_row, :, :, place.quartet_column, :]
    return np.ascontiguousarray(quartets.reshape(layout.plane_height, layout.plane_width))


def _arctangent(y: npt.NDArray[np.float64], x: npt.NDArray[np.float64]) -> npt.NDArray[np.float64]:
    """atan2(y, x) in (-pi, pi], 0 for (0, 0), step for step as the tool computes it."""
    a = np.abs(x)
    b = np.abs(y)
    steep = b > a
    numerator = np.where(steep, a, b)
    denominator = np.where(steep, b, a)
    both_zero = denominator == 0
    t = numerator / np.where(both_zero, 1.0, denominator)
    upper = t > _TAN_PI_8
    u = np.where(upper, (t - 1.0) / (t + 1.0), t)
    z = u * u
    p = np.full_like(z, _SERIES[-1])
    for coefficient in _SERIES[-2::-1]:
        p = p * z + coefficient
    r = u * p
    r = np.where(upper, _QUARTER_PI + r, r)
    r = np.where(steep, _HALF_PI - r, r)
    r = np.where(x < 0, _PI - r, r)
    r = np.where(y < 0, -r, r)
    return np.where(both_zero, 0.0, r)


def _rounded_element(scaled: npt.NDArray[np.float64], output_maximum: float) -> npt.NDArray[np.uint16]:
    value = np.floor(scaled + 0.5)
    value = np.where(value > output_maximum, output_maximum, value)
    value = np.where(value < 0, 0.0, value)
    return value.astype(np.uint16)


class StokesSum(NamedTuple):
    s0: npt.NDArray[np.float64]
    s1: npt.NDArray[np.float64]
    s2: npt.NDArray[np.float64]


def stokes_sum(planes: Sequence[Tuple[npt.NDArray[np.uint16], npt.NDArray[np.float32]]]) -> StokesSum:
    """Sums S0 and each plane's S0 times its normalized pair, in the planes' order.

    A plane whose S0 element is 0, or whose pair is not finite, adds its S0
    and nothing to S1 and S2.
    """
    shape = planes[0][0].shape
    s0 = np.zeros(shape)
    s1 = np.zeros(shape)
    s2 = np.zeros(shape)
    for intensity, normalized in planes:
        weight = intensity.astype(np.float64)
        n1 = normalized[..., 0].astype(np.float64)
        n2 = normalized[..., 1].astype(np.float64)
        valid = (intensity > 0) & np.isfinite(n1) & np.isfinite(n2)
        s0 = s0 + weight
        s1 = s1 + np.where(valid, weight * np.where(valid, n1, 0.0), 0.0)
        s2 = s2 + np.where(valid, weight * np.where(valid, n2, 0.0), 0.0)
    return StokesSum(s0, s1, s2)


def aolp_element(stokes: StokesSum, output_maximum: int) -> npt.NDArray[np.uint16]:
    maximum = float(output_maximum)
    return _rounded_element((_arctangent(stokes.s2, stokes.s1) + _PI) / _TWO_PI * maximum, maximum)


def dolp_element(stokes: StokesSum, output_maximum: int) -> npt.NDArray[np.uint16]:
    maximum = float(output_maximum)
    dark = stokes.s0 == 0
    degree = np.sqrt(stokes.s1 * stokes.s1 + stokes.s2 * stokes.s2) / np.where(dark, 1.0, stokes.s0)
    return np.where(dark, np.uint16(0), _rounded_element(degree * maximum, maximum))


def s0_color(s0: Dict[str, npt.NDArray[np.uint16]]) -> npt.NDArray[np.uint16]:
    """R, G, B: the S0 of the R and B planes, and (G1 + G2 + 1) // 2."""
    green = (s0["G1"].astype(np.uint32) + s0["G2"] + 1) // 2
    return np.stack((s0["R"], green.astype(np.uint16), s0["B"]), axis=-1)


def mean_intensity(s0: Dict[str, npt.NDArray[np.uint16]]) -> npt.NDArray[np.uint16]:
    """The mean of the four planes' S0, rounded half up: the intensity on s0's scale."""
    total = s0["R"].astype(np.uint32) + s0["G1"] + s0["G2"] + s0["B"]
    return ((total + 2) // 4).astype(np.uint16)


def combined_images(
    s0: Dict[str, npt.NDArray[np.uint16]],
    normalized: Dict[str, npt.NDArray[np.float32]],
    names: Sequence[str],
    output_maximum: int,
) -> Dict[str, npt.NDArray[np.uint16]]:
    """The angle and degree images among ``names`` (aolp, dolp and the per-colour ones)."""
    images: Dict[str, npt.NDArray[np.uint16]] = {}
    if "aolp" in names or "dolp" in names:
        combined = stokes_sum([(s0[plane], normalized[plane]) for plane in PLANES])
        if "aolp" in names:
            images["aolp"] = aolp_element(combined, output_maximum)
        if "dolp" in names:
            images["dolp"] = dolp_element(combined, output_maximum)
    for aolp_name, dolp_name, planes in CHANNELS:
        if aolp_name not in names and dolp_name not in names:
            continue
        channel = stokes_sum([(s0[plane], normalized[plane]) for plane in planes])
        if aolp_name in names:
            images[aolp_name] = aolp_element(channel, output_maximum)
        if dolp_name in names:
            images[dolp_name] = dolp_element(channel, output_maximum)
    return images
