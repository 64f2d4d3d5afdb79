"""Polarization images from raw frames of polarization cameras, with numpy.

Polarization sensors carry a repeating 2x2 quartet of 0, 45, 90 and 135
degree linear polarizers. From one raw frame this package computes, per
pixel, the Stokes quantities S0, S1 and S2, the angle (AoLP) and the degree
(DoLP) of linear polarization, through the Kestrion polarization library::

    import numpy as np
    import ksi_polarization as ksp

    frame = np.fromfile("frame.raw", dtype=np.uint16).reshape(2048, 2448)
    with ksp.Processor() as processor:
        images = processor.transform(frame, phase=0, bit_depth=12)
    degrees = ksp.aolp_degrees(images["aolp"])        # -90..+90
    fraction = ksp.dolp_fraction(images["dolp"])      # 0..1
    picture = ksp.colorize_aolp(images["aolp"], images["dolp"])

See :meth:`Processor.transform` for the phase, the origin and the outputs,
and for colour polarization sensors (``sensor="color"``).
"""

from ._color_sensor import COLOR_ORDERS
from ._conversions import aolp_degrees, aolp_radians, colorize_aolp, dolp_fraction, imax, imin
from ._library import library_path
from ._processor import (
    COLOR_DEFAULT_OUTPUTS,
    COLOR_OUTPUTS,
    DEFAULT_OUTPUTS,
    MONO_OUTPUTS,
    OUTPUT_NAMES,
    Processor,
    StatusError,
)

__version__ = "0.24.0"

__all__ = [
    "COLOR_DEFAULT_OUTPUTS",
    "COLOR_ORDERS",
    "COLOR_OUTPUTS",
    "DEFAULT_OUTPUTS",
    "MONO_OUTPUTS",
    "OUTPUT_NAMES",
    "Processor",
    "StatusError",
    "aolp_degrees",
    "aolp_radians",
    "colorize_aolp",
    "dolp_fraction",
    "imax",
    "imin",
    "library_path",
]
