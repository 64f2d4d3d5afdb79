"""Physical values and a false-colour picture from the 16-bit output images."""

from __future__ import annotations

from typing import Tuple

import numpy as np
import numpy.typing as npt

from ._intensity_range import intensity_maximum, intensity_minimum
from ._processor import _integer_in_range


def _fraction_of_maximum(image: npt.ArrayLike, output_maximum: int) -> npt.NDArray[np.float64]:
    values = np.asarray(image)
    if values.dtype.kind not in "uif":
        raise TypeError(f"image must hold integers or floats, not {values.dtype}")
    maximum = _integer_in_range("output_maximum", output_maximum, 1, 65535)
    return values / np.float64(maximum)


def aolp_radians(image: npt.ArrayLike, output_maximum: int = 65535) -> npt.NDArray[np.float64]:
    """Angle of linear polarization in radians, -pi/2 to +pi/2.

    ``image`` is an ``aolp`` output, whose 0 to ``output_maximum`` spans
    -90 to +90 degrees; pass the ``output_maximum`` of its transform.
    Returns float64 values of the image's shape.
    """
    return _fraction_of_maximum(image, output_maximum) * np.pi - np.pi / 2


def aolp_degrees(image: npt.ArrayLike, output_maximum: int = 65535) -> npt.NDArray[np.float64]:
    """Angle of linear polarization in degrees, -90 to +90.

    ``image`` is an ``aolp`` output, whose 0 to ``output_maximum`` spans
    -90 to +90 degrees; pass the ``output_maximum`` of its transform.
    Returns float64 values of the image's shape.
    """
    return _fraction_of_maximum(image, output_maximum) * 180.0 - 90.0


def dolp_fraction(image: npt.ArrayLike, output_maximum: int = 65535) -> npt.NDArray[np.float64]:
    """Degree of linear polarization as a fraction, 0 to 1.

    ``image`` is a ``dolp`` output, whose 0 to ``output_maximum`` spans
    0 to 1; pass the ``output_maximum`` of its transform. Returns float64
    values of the image's shape.
    """
    return _fraction_of_maximum(image, output_maximum)


def colorize_aolp(
    aolp: npt.NDArray[np.integer], dolp: npt.NDArray[np.integer], output_maximum: int = 65535
) -> npt.NDArray[np.uint8]:
    """False-colour picture of the polarization: hue from the angle, brightness from the degree.

    The hue runs once around the colour circle over the angle's 180 degree
    cycle (red at -90 and +90 degrees, green at -30, blue at +30), the
    saturation is full, and the value is the degree of linear polarization,
    so unpolarized regions go dark. This is the ``aolp_color`` picture of
    the ``ksi-polarization`` command-line tool, byte for byte.

    Args:
        aolp: an ``aolp`` output image (integers, any shape).
        dolp: the ``dolp`` output image of the same frame, same shape.
        output_maximum: the ``output_maximum`` of their transform.

    Returns:
        uint8 RGB of shape ``aolp.shape + (3,)``.
    """
    angles = np.asarray(aolp)
    degrees = np.asarray(dolp)
    for argument, values in (("aolp", angles), ("dolp", degrees)):
        if values.dtype.kind not in "ui":
            raise TypeError(f"{argument} must hold integers, not {values.dtype}")
    if angles.shape != degrees.shape:
        raise ValueError(f"aolp has shape {angles.shape} but dolp has shape {degrees.shape}")
    maximum = np.float64(_integer_in_range("output_maximum", output_maximum, 1, 65535))

    # HSV to RGB with full saturation, in double precision, rounded to the
    # nearest byte with halves up.
    hue = np.minimum(angles / maximum, 1.0)
    value = np.minimum(degrees / maximum, 1.0)
    hue6 = 6.0 * hue
    sector_start = np.floor(hue6)
    fraction = hue6 - sector_start
    sector = np.mod(sector_start, 6.0).astype(np.intp)
    falling = value * (1.0 - fraction)
    rising = value * fraction
    zero = np.zeros_like(value)
    red = np.choose(sector, (value, falling, zero, zero, rising, value))
    green = np.choose(sector, (rising, value, value, falling, zero, zero))
    blue = np.choose(sector, (zero, zero, rising, value, value, falling))
    rgb = np.stack((red, green, blue), axis=-1)
    return np.floor(255.0 * rgb + 0.5).astype(np.uint8)


def _intensity_inputs(
    name: str, s0: object, dolp: object, output_maximum: int
) -> Tuple[npt.NDArray[np.uint16], npt.NDArray[np.uint16], int]:
    for argument, image in (("s0", s0), ("dolp", dolp)):
        if image is None:
            raise ValueError(f"{name} needs the s0 and dolp images of one frame, but {argument} is None")
    intensity = np.asarray(s0)
    degree = np.asarray(dolp)
    for argument, values in (("s0", intensity), ("dolp", degree)):
        if values.dtype.kind not in "ui":
            raise TypeError(f"{argument} must hold integers, not {values.dtype}")
    if intensity.shape != degree.shape:
        raise ValueError(f"s0 has shape {intensity.shape} but dolp has shape {degree.shape}")
    maximum = _integer_in_range("output_maximum", output_maximum, 1, 65535)
    for argument, values in (("s0", intensity), ("dolp", degree)):
        if values.size and (values.min() < 0 or values.max() > maximum):
            raise ValueError(f"{argument} has values outside 0 to output_maximum {maximum}")
    return intensity.astype(np.uint16), degree.astype(np.uint16), maximum


def imin(s0: npt.ArrayLike, dolp: npt.ArrayLike, output_maximum: int = 65535) -> npt.NDArray[np.uint16]:
    """The least intensity over all polarizer angles: the image without glare.

    Imin = S0 (1 - DoLP) / 2 with DoLP as a fraction, rounded half up; with
    s the ``s0`` element, d the ``dolp`` element and M the output maximum,
    in integers: ``(s (M - d) + M) // (2 M)``. This is the ``imin`` output
    of :meth:`Processor.transform` and of the tool, from the ``s0`` and
    ``dolp`` images of one frame (for a colour sensor: the mean of its
    planes' S0, rounded half up, and the combined ``dolp``).

    Returns:
        uint16 of their shape.

    Raises:
        ValueError: an image is None, the shapes differ, or a value lies
            outside 0 to output_maximum.
        TypeError: an image does not hold integers.
    """
    return intensity_minimum(*_intensity_inputs("imin", s0, dolp, output_maximum))


def imax(s0: npt.ArrayLike, dolp: npt.ArrayLike, output_maximum: int = 65535) -> npt.NDArray[np.uint16]:
    """The greatest intensity over all polarizer angles.

    Imax = S0 (1 + DoLP) / 2, rounded half up and clamped: in integers
    ``min(M, (s (M + d) + M) // (2 M))``. Arguments and errors as :func:`imin`.
    """
    return intensity_maximum(*_intensity_inputs("imax", s0, dolp, output_maximum))
