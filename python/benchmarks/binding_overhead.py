"""Times one 2448x2048 frame through the Python binding, through the same
call from C, and through a plain numpy computation of S0, AoLP and DoLP.

    python benchmarks/binding_overhead.py [--c-timing PATH] [--repetitions N]

--c-timing names the c_transform_timing program (CMake target
python_binding_c_timing), which times the same transform from C.
Every figure is the median over the repetitions of the processor time the
process spent in one call, in milliseconds: every call runs on one thread,
so on an idle machine this is the elapsed time, and on a busy one it leaves
out the time other processes took.
"""

from __future__ import annotations

import argparse
import statistics
import subprocess
import time
from typing import Callable, Dict

import numpy as np

import ksi_polarization as ksp

HEIGHT, WIDTH, BIT_DEPTH, OUTPUT_MAXIMUM = 2048, 2448, 12, 65535
SMALL = 2


def median_milliseconds(action: Callable[[], object], repetitions: int) -> float:
    action()
    times = []
    for _ in range(repetitions):
        start = time.process_time()
        action()
        times.append((time.process_time() - start) * 1e3)
    return statistics.median(times)


def c_milliseconds(program: str, width: int, height: int, repetitions: int) -> float:
    command = [program, str(width), str(height), str(BIT_DEPTH), str(OUTPUT_MAXIMUM), str(repetitions)]
    return float(subprocess.run(command, check=True, capture_output=True, text=True).stdout)


def numpy_s0_aolp_dolp(frame: np.ndarray) -> Dict[str, np.ndarray]:
    """S0, AoLP and DoLP of every pixel from its 2x2 neighbourhood (the
    neighbour to the right, below and diagonally; the last column and row
    take the one before), for a phase-0 mosaic, in float32."""
    pixels = frame.astype(np.float32)
    below = np.concatenate((pixels[1:], pixels[-2:-1]), axis=0)
    own, horizontal = pixels, np.concatenate((pixels[:, 1:], pixels[:, -2:-1]), axis=1)
    vertical, diagonal = below, np.concatenate((below[:, 1:], below[:, -2:-1]), axis=1)
    own_minus_diagonal = own - diagonal
    vertical_minus_horizontal = vertical - horizontal
    s1 = np.empty_like(pixels)
    s2 = np.empty_like(pixels)
    # The polarizer over a pixel (by the parity of its row and column)
    # decides which of the two differences is S1 and which S2, and their signs.
    for rows, columns, s1_sign, s2_sign, swapped in (
        (slice(0, None, 2), slice(0, None, 2), 1, 1, False),   # 0 degrees
        (slice(0, None, 2), slice(1, None, 2), -1, -1, True),  # 135 degrees
        (slice(1, None, 2), slice(0, None, 2), 1, 1, True),    # 45 degrees
        (slice(1, None, 2), slice(1, None, 2), -1, -1, False),  # 90 degrees
    ):
        first = own_minus_diagonal[rows, columns]
        second = vertical_minus_horizontal[rows, columns]
        if swapped:
            first, second = second, first
        s1[rows, columns] = s1_sign * first
        s2[rows, columns] = s2_sign * second
    s0 = (own + horizontal + vertical + diagonal) * 0.5
    scale = np.float32(OUTPUT_MAXIMUM / (2**BIT_DEPTH - 1))
    aolp = (np.arctan2(s2, s1) * 0.5 + np.float32(np.pi / 2)) * np.float32(OUTPUT_MAXIMUM / np.pi)
    with np.errstate(divide="ignore", invalid="ignore"):
        dolp = np.sqrt(s1 * s1 + s2 * s2) / s0 * np.float32(OUTPUT_MAXIMUM)
    return {
        name: np.rint(np.clip(np.nan_to_num(values), 0, OUTPUT_MAXIMUM)).astype(np.uint16)
        for name, values in (("s0", s0 * scale), ("aolp", aolp), ("dolp", dolp))
    }


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--c-timing", help="path of the c_transform_timing program")
    parser.add_argument("--repetitions", type=int, default=30)
    arguments = parser.parse_args()
    repetitions = arguments.repetitions

    frame = np.random.default_rng(1).integers(0, 2**BIT_DEPTH, size=(HEIGHT, WIDTH), dtype=np.uint16)
    common = dict(phase=0, bit_depth=BIT_DEPTH, output_maximum=OUTPUT_MAXIMUM)
    print(f"{WIDTH}x{HEIGHT} random {BIT_DEPTH}-bit frame, output maximum {OUTPUT_MAXIMUM}, "
          f"median of {repetitions}, library {ksp.library_path()}")
    rows = []
    with ksp.Processor() as processor:
        everything = processor.transform(frame, outputs=ksp.OUTPUT_NAMES, **common)
        rows.append(("Python, all six outputs, preallocated out=", median_milliseconds(
            lambda: processor.transform(frame, outputs=ksp.OUTPUT_NAMES, out=everything, **common), repetitions)))
        rows.append(("Python, all six outputs, new arrays", median_milliseconds(
            lambda: processor.transform(frame, outputs=ksp.OUTPUT_NAMES, **common), repetitions)))
        three = processor.transform(frame, **common)
        rows.append(("Python, s0 aolp dolp, preallocated out=", median_milliseconds(
            lambda: processor.transform(frame, out=three, **common), repetitions)))
        rows.append(("Python, s0 aolp dolp, new arrays", median_milliseconds(
            lambda: processor.transform(frame, **common), repetitions)))
    if arguments.c_timing:
        rows.append(("C, all six outputs, preallocated", c_milliseconds(arguments.c_timing, WIDTH, HEIGHT, repetitions)))
    rows.append(("numpy, s0 aolp dolp", median_milliseconds(lambda: numpy_s0_aolp_dolp(frame), repetitions)))
    for label, milliseconds in rows:
        print(f"{label:42s} {milliseconds:8.2f} ms  {HEIGHT * WIDTH / milliseconds / 1e3:7.1f} Mpixel/s")

    # The fixed cost of a call shows on the smallest frame the library takes.
    small = frame[:SMALL, :SMALL].copy()
    small_rows = []
    with ksp.Processor() as processor:
        small_out = processor.transform(small, outputs=ksp.OUTPUT_NAMES, **common)
        small_rows.append(("Python, all six outputs, preallocated out=", median_milliseconds(
            lambda: processor.transform(small, outputs=ksp.OUTPUT_NAMES, out=small_out, **common), 100 * repetitions)))
    if arguments.c_timing:
        small_rows.append(("C, all six outputs, preallocated",
                           c_milliseconds(arguments.c_timing, SMALL, SMALL, 100 * repetitions)))
    for label, milliseconds in small_rows:
        print(f"{SMALL}x{SMALL} frame: {label:42s} {milliseconds * 1e3:8.1f} us")

    # The check that numpy computes the same quantities leaves out every
    # fourth column, which the library's SSE4.1 form copies from its left
    # neighbour.
    plain = numpy_s0_aolp_dolp(frame)
    own_quartet = np.arange(WIDTH) % 4 != 3
    angle_difference = np.abs(ksp.aolp_degrees(plain["aolp"]) - ksp.aolp_degrees(three["aolp"]))[:, own_quartet]
    angle_difference = np.minimum(angle_difference, 180 - angle_difference)
    dolp_difference = np.abs(ksp.dolp_fraction(plain["dolp"]) - ksp.dolp_fraction(three["dolp"]))[:, own_quartet]
    print(f"numpy against the library on 99% of the pixels of columns 4k to 4k+2: AoLP within "
          f"{np.percentile(angle_difference, 99):.2f} degrees, DoLP within {np.percentile(dolp_difference, 99):.4f}")

if __name__ == "__main__":
    main()
