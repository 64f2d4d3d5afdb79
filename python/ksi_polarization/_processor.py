"""The processor: one library handle, its calibration and the transform."""

from __future__ import annotations

import ctypes
import numbers
import operator
import weakref
from typing import Dict, Iterable, Mapping, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _color_sensor as color_sensor
from ._intensity_range import intensity_maximum, intensity_minimum
from ._library import library

OUTPUT_NAMES: Tuple[str, ...] = ("normalized", "s0", "s1", "s2", "aolp", "dolp")
"""Names of the library's six outputs, in the order of its slots 0 to 5."""

MONO_OUTPUTS: Tuple[str, ...] = OUTPUT_NAMES + ("imin", "imax")
"""The outputs of a monochrome polarization sensor."""

COLOR_OUTPUTS: Tuple[str, ...] = (
    "s0_color", "aolp", "dolp", "imin", "imax", "aolp_r", "aolp_g", "aolp_b", "dolp_r", "dolp_g", "dolp_b",
)
"""The outputs of a colour polarization sensor."""

DEFAULT_OUTPUTS: Tuple[str, ...] = ("s0", "aolp", "dolp")
"""The outputs :meth:`Processor.transform` computes for a monochrome sensor when none are named."""

COLOR_DEFAULT_OUTPUTS: Tuple[str, ...] = ("s0_color", "aolp", "dolp")
"""The outputs :meth:`Processor.transform` computes for a colour sensor when none are named."""

_SENSOR_OUTPUTS = {"mono": MONO_OUTPUTS, "color": COLOR_OUTPUTS}
_SENSOR_DEFAULT_OUTPUTS = {"mono": DEFAULT_OUTPUTS, "color": COLOR_DEFAULT_OUTPUTS}
# Smallest frame of each sensor: a quartet, a super-pixel of four quartets.
_SENSOR_MINIMUM_SIZE = {"mono": 2, "color": 4}
_GLARE_OUTPUTS = ("imin", "imax")

_SLOT = {name: slot for slot, name in enumerate(OUTPUT_NAMES)}

# Polarizer angle over the sensor's top-left pixel -> the library's phase code.
_PHASE_CODE = {0: 0, 45: 1, 90: 2, 135: 3}

_INT32_MIN = -(2**31)
_INT32_MAX = 2**31 - 1

_STATUS_MEANINGS = {
    0: ("status_success", "success"),
    1: ("status_failure", "the processor lacks SSE, or an unexpected error occurred"),
    2: ("status_module_not_initialized", "the library's module is not initialised"),
    3: ("status_out_of_memory", "the processor could not be allocated"),
    4: ("status_null_handle", "the processor handle is null"),
    5: ("status_null_input", "the input frame is null"),
    6: ("status_no_output", "no output was requested"),
    7: ("status_output_is_input", "an output buffer is the input frame"),
    8: ("status_duplicate_output", "two outputs share one buffer"),
    9: ("status_invalid_phase", "the phase is not 0 to 3"),
    10: ("status_zero_output_maximum", "the output maximum is 0"),
    11: ("status_invalid_width", "the width is 1 or less"),
    12: ("status_invalid_height", "the height is 1 or less"),
    13: ("status_invalid_bit_depth", "the bit depth is greater than 16"),
}


class StatusError(RuntimeError):
    """A library function returned a non-zero status code.

    Attributes:
        function: name of the C function that failed.
        code: the status code it returned.
        name: the code's enumerator in the C header, e.g. ``status_module_not_initialized``.
    """

    def __init__(self, function: str, code: int) -> None:
        self.function = function
        self.code = code
        self.name, meaning = _STATUS_MEANINGS.get(code, ("unknown status", "a code the C header does not list"))
        super().__init__(f"{function} returned {code} ({self.name}: {meaning})")


def _release(handle: int) -> int:
    """Destroys a handle and counts the module down; returns destroy's status."""
    status = library.kl_polarization_processor_destroy_polarization_processor(handle)
    library.kl_polarization_processor_module_terminate()
    return status


def _integer(argument: str, value: object) -> int:
    try:
        return operator.index(value)  # type: ignore[arg-type]
    except TypeError:
        raise TypeError(f"{argument} must be an integer, not {type(value).__name__} {value!r}") from None


def _integer_in_range(argument: str, value: object, lowest: int, highest: int) -> int:
    number = _integer(argument, value)
    if not lowest <= number <= highest:
        raise ValueError(f"{argument} must be {lowest} to {highest}, not {number}")
    return number


def _check_frame(frame: object, sensor: str) -> None:
    if not isinstance(frame, np.ndarray):
        raise TypeError(f"frame must be a numpy array, not {type(frame).__name__}")
    if frame.dtype.kind != "u" or frame.dtype.itemsize not in (1, 2):
        raise TypeError(f"frame must have dtype uint16 or uint8, not {frame.dtype}")
    if frame.ndim != 2:
        raise TypeError(f"frame must have 2 dimensions (height, width), not {frame.ndim} (shape {frame.shape})")
    height, width = frame.shape
    if sensor == "color" and (height < 4 or width < 4):
        raise ValueError(
            f"frame of {height}x{width} pixels (height x width) is smaller than one colour super-pixel (4x4)"
        )
    if height < 2 or width < 2:
        raise ValueError(f"frame must be at least 2x2 pixels, not {height}x{width} (height x width)")
    if height > _INT32_MAX or width > _INT32_MAX:
        raise ValueError(f"frame of {height}x{width} pixels exceeds the library's 32-bit sizes")


def _phase_code(phase: object) -> int:
    if isinstance(phase, numbers.Real) and not isinstance(phase, bool) and phase in _PHASE_CODE:
        return _PHASE_CODE[phase]  # type: ignore[index]
    raise ValueError(f"phase must be 0, 45, 90 or 135 (degrees), not {phase!r}")


def _sensor(sensor: object) -> str:
    if isinstance(sensor, str) and sensor in _SENSOR_OUTPUTS:
        return sensor
    raise ValueError(f"sensor must be 'mono' or 'color', not {sensor!r}")


def _color_order(order: object) -> str:
    if isinstance(order, str) and order in color_sensor.COLOR_ORDERS:
        return order
    raise ValueError(f"color_order must be one of {', '.join(color_sensor.COLOR_ORDERS)}, not {order!r}")


def _origin(origin: object) -> Tuple[int, int]:
    try:
        x, y = origin  # type: ignore[misc]
    except (TypeError, ValueError):
        raise ValueError(f"origin must be a pair (x, y) of integers, not {origin!r}") from None
    return (
        _integer_in_range("origin x", x, _INT32_MIN, _INT32_MAX),
        _integer_in_range("origin y", y, _INT32_MIN, _INT32_MAX),
    )


def _output_names(outputs: Union[str, Iterable[str], None], sensor: str) -> Tuple[str, ...]:
    if outputs is None:
        return _SENSOR_DEFAULT_OUTPUTS[sensor]
    available = _SENSOR_OUTPUTS[sensor]
    try:
        requested = (outputs,) if isinstance(outputs, str) else tuple(outputs)
    except TypeError:
        raise TypeError(f"outputs must be an output name or an iterable of names, not {outputs!r}") from None
    for name in requested:
        if name not in available:
            raise ValueError(
                f"outputs has {name!r}, which is none of {', '.join(available)} (the {sensor} sensor's outputs)"
            )
    if not requested:
        raise ValueError("outputs is empty: name at least one of " + ", ".join(available))
    return tuple(dict.fromkeys(requested))


def _output_layout(name: str, height: int, width: int) -> Tuple[Tuple[int, ...], np.dtype]:
    if name == "normalized":
        return (height, width, 2), np.dtype(np.float32)
    if name == "s0_color":
        return (height, width, 3), np.dtype(np.uint16)
    return (height, width), np.dtype(np.uint16)


def _check_out(
    out: Optional[Mapping[str, np.ndarray]], names: Tuple[str, ...], frame: np.ndarray, height: int, width: int
) -> Dict[str, np.ndarray]:
    """``height`` and ``width`` are the outputs' size."""
    if out is None:
        return {}
    if not isinstance(out, Mapping):
        raise TypeError(f"out must be a mapping from output name to array, not {type(out).__name__}")
    checked: Dict[str, np.ndarray] = {}
    for name, array in out.items():
        if name not in names:
            raise ValueError(f"out has {name!r}, which is not among the requested outputs {names}")
        shape, dtype = _output_layout(name, height, width)
        if not isinstance(array, np.ndarray):
            raise TypeError(f"out[{name!r}] must be a numpy array, not {type(array).__name__}")
        if array.dtype != dtype:
            raise TypeError(f"out[{name!r}] must have dtype {dtype}, not {array.dtype}")
        if array.shape != shape:
            raise ValueError(f"out[{name!r}] must have shape {shape}, not {array.shape}")
        for flag, wording in (("C_CONTIGUOUS", "C-contiguous"), ("ALIGNED", "aligned"), ("WRITEABLE", "writeable")):
            if not array.flags[flag]:
                raise ValueError(f"out[{name!r}] is not {wording}")
        if np.may_share_memory(array, frame):
            raise ValueError(f"out[{name!r}] shares memory with frame")
        for other_name, other in checked.items():
            if np.may_share_memory(array, other):
                raise ValueError(f"out[{name!r}] and out[{other_name!r}] share memory")
        checked[name] = array
    return checked


class Processor:
    """A polarization processor of the Kestrion library.

    Creating one initialises the library's module (the module counts its
    clients, so several processors, and other users of the library in the
    same process, share it) and creates a processor handle with the default
    calibration. :meth:`close`, the end of a ``with`` block, or the garbage
    collection of the object destroys the handle and counts the module down.

    Transforms may run on several threads at once, on one processor or
    several; the library computes each on the caller's thread without the
    global interpreter lock. Do not close a processor or set its calibration
    while a transform on it is running.

    Example::

        with ksi_polarization.Processor() as processor:
            images = processor.transform(frame, phase=0, bit_depth=12)
    """

    def __init__(self) -> None:
        library.kl_polarization_processor_module_initialize()
        handle = ctypes.c_void_p()
        status = library.kl_polarization_processor_create_polarization_processor(ctypes.byref(handle))
        if status != 0:
            library.kl_polarization_processor_module_terminate()
            raise StatusError("kl_polarization_processor_create_polarization_processor", status)
        self._handle: int = handle.value  # type: ignore[assignment]
        self._finalizer = weakref.finalize(self, _release, self._handle)

    def __enter__(self) -> "Processor":
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    @property
    def closed(self) -> bool:
        """True once the processor has been closed."""
        return not self._finalizer.alive

    def close(self) -> None:
        """Destroy the handle and count the library's module down; later calls do nothing.

        Raises:
            StatusError: the library refused to destroy the handle (for
                example because another client terminated the module too often).
        """
        if not self._finalizer.alive:
            return
        status = self._finalizer()
        if status != 0:
            raise StatusError("kl_polarization_processor_destroy_polarization_processor", status)

    def _live_handle(self) -> int:
        if not self._finalizer.alive:
            raise ValueError("the processor is closed")
        return self._handle

    @property
    def calibration(self) -> npt.NDArray[np.float32]:
        """The calibration matrices, a new float32 array of shape (4, 4, 4).

        ``calibration[k]`` is the 4x4 matrix of the pixels under the
        polarizer of angle 0, 45, 90 or 135 degrees for k = 0, 1, 2, 3. Its
        row 0 weighs S0, row 1 S1, row 2 S2; row 3 is kept but unused. Its
        columns weigh the four pixels a pixel is computed from: its own, its
        horizontal neighbour, its vertical neighbour and the diagonal one.
        S0 is half the weighted sum.

        Assigning an array of shape (4, 4, 4) sets all four matrices. The
        library applies them to the pixels its scalar edge stages compute
        (the last columns and rows of a frame); the interior of a frame
        always uses the default weights.
        """
        matrices = np.empty((4, 4, 4), dtype=np.float32)
        status = library.kl_polarization_processor_get_custom_calibration_coefficients(
            self._live_handle(), *(matrix.ctypes.data for matrix in matrices)
        )
        if status != 0:
            raise StatusError("kl_polarization_processor_get_custom_calibration_coefficients", status)
        return matrices

    @calibration.setter
    def calibration(self, matrices: npt.ArrayLike) -> None:
        handle = self._live_handle()
        values = np.ascontiguousarray(matrices, dtype=np.float32)
        if values.shape != (4, 4, 4):
            raise ValueError(f"calibration must have shape (4, 4, 4), not {values.shape}")
        status = library.kl_polarization_processor_set_custom_calibration_coefficients(
            handle, *(matrix.ctypes.data for matrix in values)
        )
        if status != 0:
            raise StatusError("kl_polarization_processor_set_custom_calibration_coefficients", status)

    def transform(
        self,
        frame: npt.NDArray[Union[np.uint16, np.uint8]],
        *,
        phase: int,
        bit_depth: int,
        output_maximum: int = 65535,
        origin: Tuple[int, int] = (0, 0),
        outputs: Union[str, Iterable[str], None] = None,
        out: Optional[Mapping[str, np.ndarray]] = None,
        sensor: str = "mono",
        color_order: str = "rggb",
    ) -> Dict[str, np.ndarray]:
        """Compute polarization images of one raw frame.

        Args:
            frame: the raw sensor pixels, a 2-D uint16 or uint8 array of
                shape (height, width), each at least 2 (4 for a colour
                sensor). A C-contiguous uint16 frame is used in place; any
                other is converted once.
            phase: angle in degrees (0, 45, 90 or 135) of the polarizer over
                the sensor's top-left pixel. The 2x2 polarizer quartet
                repeats across the sensor; the phase names its layout::

                    phase   top left  top right  bottom left  bottom right
                    0           0        135         45            90
                    45         45         90          0           135
                    90         90         45        135             0
                    135       135          0         90            45

            bit_depth: significant bits of a pixel, 1 to 16; the input
                maximum is 2**bit_depth - 1. Pixels above it are not checked.
            output_maximum: largest value of the uint16 outputs, 1 to 65535.
                When it differs from the input maximum, s0, s1 and s2 are
                rescaled by output_maximum / input maximum.
            origin: (x, y), the sensor column and row of the frame's first
                pixel, for frames cropped from a larger sensor image. Only
                its parity matters to the library: it re-bases the phase to
                the polarizer over that pixel, so a crop at an odd offset is
                computed with the layout it really has. A colour sensor's
                origin must be even (a frame
                cannot start inside a quartet); one that is not a multiple
                of 4 re-bases the colour order likewise.
            outputs: names of the outputs to compute (a single name or an
                iterable of names; None: ``DEFAULT_OUTPUTS`` or, for a
                colour sensor, ``COLOR_DEFAULT_OUTPUTS``)::

                    normalized  float32 (height, width, 2): S1/S0, S2/S0
                    s0          uint16 (height, width): total intensity S0
                    s1          uint16: S1, negative values stored as 0
                    s2          uint16: S2, negative values stored as 0
                    aolp        uint16: angle of linear polarization,
                                -90..+90 degrees over 0..output_maximum
                    dolp        uint16: degree of linear polarization,
                                0..1 over 0..output_maximum
                    imin, imax  uint16: least and greatest intensity over
                                polarizer angles, S0 (1 -/+ DoLP) / 2
                                (see :func:`imin`)

                A colour sensor's outputs have (height // 4) * 2 rows and
                (width // 4) * 2 columns (the frame's complete
                super-pixels); it has aolp, dolp, imin and imax from the
                Stokes vector summed over its four colour planes, and
                instead of normalized, s0, s1 and s2::

                    s0_color    uint16 (rows, columns, 3): S0 of the R,
                                G (mean of G1 and G2) and B planes
                    aolp_r, aolp_g, aolp_b, dolp_r, dolp_g, dolp_b
                                uint16: angle and degree of one colour

                :func:`aolp_degrees`, :func:`aolp_radians` and
                :func:`dolp_fraction` turn these images into physical values.
            out: optional preallocated arrays, by output name, for some or
                all of the requested outputs; each must have the shape and
                dtype above, be C-contiguous, aligned and writeable, and
                share no memory with the frame or the other outputs.
                Outputs not given here are allocated.
            sensor: "mono" (2x2 polarizer quartets) or "color" (4x4
                super-pixels of four quartets under Bayer colour filters).
            color_order: for a colour sensor, the colour filters of the
                quartets of the sensor's top-left super-pixel, top left,
                top right, bottom left, bottom right: "rggb", "bggr",
                "grbg" or "gbrg". G1 is the green quartet of a
                super-pixel's top row, G2 the one of its bottom row.

        Returns:
            A dict from each requested output name to its array (the array
            from ``out`` where one was given).

        Raises:
            TypeError: frame or an ``out`` array has the wrong type, dtype or
                number of dimensions; an integer argument is no integer;
                outputs is neither a name nor an iterable.
            ValueError: frame is smaller than 2x2 (a colour sensor's than
                4x4); sensor, color_order, phase, bit_depth, output_maximum,
                origin (odd for a colour sensor), outputs or an ``out``
                array's shape or layout is wrong; the processor is closed.
            StatusError: the library refused the call.

        Nothing is written into ``out`` when an argument is refused.
        """
        handle = self._live_handle()
        sensor = _sensor(sensor)
        order = _color_order(color_order)
        _check_frame(frame, sensor)
        phase_code = _phase_code(phase)
        bit_depth = _integer_in_range("bit_depth", bit_depth, 1, 16)
        output_maximum = _integer_in_range("output_maximum", output_maximum, 1, 65535)
        origin_x, origin_y = _origin(origin)
        if sensor == "color" and (origin_x % 2 or origin_y % 2):
            raise ValueError(
                f"origin ({origin_x}, {origin_y}) starts inside a polarizer quartet: "
                "a colour sensor's origin must have an even x and y"
            )
        names = _output_names(outputs, sensor)
        height, width = frame.shape
        if sensor == "color":
            layout = color_sensor.color_layout(width, height, (origin_x, origin_y), order)
            provided = _check_out(out, names, frame, layout.plane_height, layout.plane_width)
        else:
            provided = _check_out(out, names, frame, height, width)

        pixels = np.require(frame, dtype=np.uint16, requirements=("C_CONTIGUOUS", "ALIGNED"))
        arguments = (handle, phase_code, bit_depth, output_maximum)
        if sensor == "color":
            images = _transform_color(arguments, pixels, layout, names)
        else:
            images = _transform_mono(arguments, pixels, (origin_x, origin_y), names, provided)
        results: Dict[str, np.ndarray] = {}
        for name in names:
            array = provided.get(name)
            if array is None:
                results[name] = images[name]
            else:
                if array is not images[name]:
                    array[...] = images[name]
                results[name] = array
        return results


def _library_transform(
    arguments: Tuple[int, int, int, int],
    pixels: np.ndarray,
    origin: Tuple[int, int],
    slots: Mapping[str, np.ndarray],
) -> None:
    """The library's transform of ``pixels`` into the arrays of ``slots`` (by output name)."""
    handle, phase_code, bit_depth, output_maximum = arguments
    height, width = pixels.shape
    pointers = [None] * len(OUTPUT_NAMES)
    for name, array in slots.items():
        pointers[_SLOT[name]] = array.ctypes.data
    status = library.kl_polarization_processor_transform(
        handle, phase_code, pixels.ctypes.data, origin[0], origin[1], width, height,
        bit_depth, output_maximum, *pointers,
    )
    if status != 0:
        raise StatusError("kl_polarization_processor_transform", status)


def _transform_mono(
    arguments: Tuple[int, int, int, int],
    pixels: np.ndarray,
    origin: Tuple[int, int],
    names: Tuple[str, ...],
    provided: Mapping[str, np.ndarray],
) -> Dict[str, np.ndarray]:
    height, width = pixels.shape
    glare = [name for name in _GLARE_OUTPUTS if name in names]
    # The glare images are drawn from S0 and DoLP.
    slot_names = [name for name in OUTPUT_NAMES if name in names or (glare and name in ("s0", "dolp"))]
    slots: Dict[str, np.ndarray] = {}
    for name in slot_names:
        array = provided.get(name)
        if array is None:
            shape, dtype = _output_layout(name, height, width)
            array = np.empty(shape, dtype=dtype)
        slots[name] = array
    _library_transform(arguments, pixels, origin, slots)
    output_maximum = arguments[3]
    images = dict(slots)
    if "imin" in glare:
        images["imin"] = intensity_minimum(slots["s0"], slots["dolp"], output_maximum)
    if "imax" in glare:
        images["imax"] = intensity_maximum(slots["s0"], slots["dolp"], output_maximum)
    return images


def _transform_color(
    arguments: Tuple[int, int, int, int],
    pixels: np.ndarray,
    layout: color_sensor.ColorLayout,
    names: Tuple[str, ...],
) -> Dict[str, np.ndarray]:
    shape = (layout.plane_height, layout.plane_width)
    stokes = any(name != "s0_color" for name in names)
    s0: Dict[str, np.ndarray] = {}
    normalized: Dict[str, np.ndarray] = {}
    for plane in color_sensor.PLANES:
        plane_pixels = color_sensor.extract_plane(pixels, layout, plane)
        slots = {"s0": np.empty(shape, dtype=np.uint16)}
        if stokes:
            slots["normalized"] = np.empty(shape + (2,), dtype=np.float32)
        _library_transform(arguments, plane_pixels, layout.places[plane].origin, slots)
        s0[plane] = slots["s0"]
        normalized[plane] = slots.get("normalized")  # type: ignore[assignment]
    output_maximum = arguments[3]
    glare = [name for name in _GLARE_OUTPUTS if name in names]
    # The glare images are drawn from the combined DoLP.
    wanted = tuple(names) + (("dolp",) if glare else ())
    images = color_sensor.combined_images(s0, normalized, wanted, output_maximum)
    if "s0_color" in names:
        images["s0_color"] = color_sensor.s0_color(s0)
    if glare:
        intensity = color_sensor.mean_intensity(s0)
        if "imin" in glare:
            images["imin"] = intensity_minimum(intensity, images["dolp"], output_maximum)
        if "imax" in glare:
            images["imax"] = intensity_maximum(intensity, images["dolp"], output_maximum)
    return images
