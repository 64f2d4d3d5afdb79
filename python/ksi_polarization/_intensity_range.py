"""The least and greatest intensity over polarizer angles, in integers.

With s an S0 element, d a DoLP element and M the output maximum (s, d <= M):
imin = (s (M - d) + M) // (2 M) and imax = min(M, (s (M + d) + M) // (2 M)),
that is S0 (1 -/+ DoLP) / 2 rounded half up and clamped.
"""

from __future__ import annotations

import numpy as np
import numpy.typing as npt


def intensity_minimum(
    s0: npt.NDArray[np.unsignedinteger], dolp: npt.NDArray[np.unsignedinteger], output_maximum: int
) -> npt.NDArray[np.uint16]:
    m = np.uint64(output_maximum)
    return ((s0.astype(np.uint64) * (m - dolp.astype(np.uint64)) + m) // (2 * m)).astype(np.uint16)


def intensity_maximum(
    s0: npt.NDArray[np.unsignedinteger], dolp: npt.NDArray[np.unsignedinteger], output_maximum: int
) -> npt.NDArray[np.uint16]:
    m = np.uint64(output_maximum)
    return np.minimum((s0.astype(np.uint64) * (m + dolp.astype(np.uint64)) + m) // (2 * m), m).astype(np.uint16)
