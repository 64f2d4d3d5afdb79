"""The command-line tool and the package give identical outputs for the same
frames: the tool reads TIFF mosaics written by tifffile and writes TIFF
outputs, which tifffile reads back. (PNG against TIFF, in and out, is the
tool's own test.) ctest runs this file when the build has the tool."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import numpy as np
import pytest
import tifffile

import ksi_polarization as ksp

TOOL = os.environ.get("KSI_TEST_TOOL", "")
COLOR_OUTPUTS = ("s0_color", "aolp", "dolp", "imin", "imax", "aolp_r", "aolp_g", "aolp_b", "dolp_r", "dolp_g", "dolp_b")


def frames(count: int):
    """Random frames of many sizes, with dark and saturated regions so that
    planes of S0 0 and of clipped samples occur."""
    rng = np.random.default_rng(2024)
    for index in range(count):
        height, width = rng.integers(4, 90, size=2)
        frame = rng.integers(0, 4096, size=(height, width), dtype=np.uint16)
        if index % 3 == 1:
            frame[: height // 2, : width // 2] = 0
        if index % 3 == 2:
            frame[height // 2 :, width // 3 :] = 4095
            frame[: height // 3] = rng.integers(0, 3, size=(height // 3, width), dtype=np.uint16)
        yield index, frame
    # And one frame of camera proportions.
    yield count, rng.integers(0, 4096, size=(410, 490), dtype=np.uint16)


def run_tool(arguments, directory: Path) -> None:
    assert TOOL, "KSI_TEST_TOOL names no ksi-polarization executable"
    result = subprocess.run([TOOL, *arguments], cwd=directory, capture_output=True, text=True, timeout=120)
    assert result.returncode == 0, result.stderr


@pytest.mark.parametrize("order, origin, phase", [("rggb", (0, 0), 0), ("gbrg", (2, 6), 135), ("bggr", (-2, 2), 45)])
def test_colour_outputs_of_many_random_frames_are_identical(tmp_path, processor, order, origin, phase):
    inputs = tmp_path / "in"
    inputs.mkdir()
    kept = {}
    for index, frame in frames(40):
        kept[index] = frame
        tifffile.imwrite(inputs / f"frame_{index:02}.tif", frame)
    run_tool(["process", "--sensor", "color", "--color-order", order, "--phase", str(phase), "--origin",
              f"{origin[0]},{origin[1]}", "--bit-depth", "12", "--format", "tiff", "--outputs", ",".join(COLOR_OUTPUTS),
              "-o", "out", "-j", "2", "in"], tmp_path)
    compared = 0
    for index, frame in kept.items():
        images = processor.transform(frame, phase=phase, bit_depth=12, origin=origin, outputs=COLOR_OUTPUTS,
                                     sensor="color", color_order=order)
        for name in COLOR_OUTPUTS:
            tool = tifffile.imread(tmp_path / "out" / f"frame_{index:02}_{name}.tiff")
            np.testing.assert_array_equal(tool, images[name], err_msg=f"frame {index} {name}")
            compared += tool.size
    assert compared > 500_000


def test_mono_glare_images_are_identical(tmp_path, processor):
    frame = np.random.default_rng(3).integers(0, 4096, size=(45, 62), dtype=np.uint16)
    tifffile.imwrite(tmp_path / "frame.tif", frame)
    run_tool(["process", "--phase", "90", "--origin", "1,0", "--bit-depth", "12", "--output-maximum", "9999",
              "--format", "tiff", "--outputs", "imin,imax", "frame.tif"], tmp_path)
    images = processor.transform(frame, phase=90, bit_depth=12, output_maximum=9999, origin=(1, 0),
                                 outputs=("imin", "imax"))
    for name in ("imin", "imax"):
        np.testing.assert_array_equal(tifffile.imread(tmp_path / f"frame_{name}.tiff"), images[name], err_msg=name)
