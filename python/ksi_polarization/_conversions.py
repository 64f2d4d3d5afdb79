"""Physical values and a false-colour picture from the 16-bit output images."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

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
