// The least and the greatest intensity over all polarizer angles, the
// glare-free image and its counterpart, from the S0 and DoLP elements of a
// frame: Imin = S0 (1 - DoLP) / 2 and Imax = S0 (1 + DoLP) / 2, with DoLP as
// a fraction, rounded half up and clamped. With s the S0 element, d the
// DoLP element and M the output maximum (s, d <= M), in integers:
//   imin = floor((s (M - d) + M) / (2 M))
//   imax = min(M, floor((s (M + d) + M) / (2 M)))
// so both share s0's scale.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ksi_cli {

inline std::uint16_t intensity_minimum(std::uint16_t s0, std::uint16_t dolp, std::uint16_t output_maximum)
{
    const std::uint64_t m = output_maximum;
    return static_cast<std::uint16_t>((s0 * (m - dolp) + m) / (2 * m));
}

inline std::uint16_t intensity_maximum(std::uint16_t s0, std::uint16_t dolp, std::uint16_t output_maximum)
{
    const std::uint64_t m = output_maximum;
    const std::uint64_t value = (s0 * (m + dolp) + m) / (2 * m);
    return static_cast<std::uint16_t>(value < m ? value : m);
}

// Whole images of `count` elements; either output may be null.
void paint_intensity_range(const std::uint16_t* s0, const std::uint16_t* dolp, std::size_t count,
                           std::uint16_t output_maximum, std::uint16_t* minimum, std::uint16_t* maximum);

}  // namespace ksi_cli
