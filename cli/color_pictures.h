// False-colour pictures of the angle and the degree of polarization.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace ksi_cli {

using Rgb = std::array<std::uint8_t, 3>;

// The angle picture: hue from the azimuth element, full saturation, value
// from the DoLP element, so that unpolarized light goes dark. With M the
// output maximum of the transform, in double precision:
//   h = min(azimuth / M, 1), v = min(dolp / M, 1)
//   sector = floor(6 h), f = 6 h - sector, sector = sector mod 6
//   q = v (1 - f), t = v f
//   (r, g, b) = sector 0: (v, t, 0)  1: (q, v, 0)  2: (0, v, t)
//               3: (0, q, v)  4: (t, 0, v)  5: (v, 0, q)
//   each byte = floor(255 x + 0.5)
// The hue wheel covers the azimuth's 180 degree cycle once, so -90 and +90
// degrees meet in the same red. The Python package computes the same bytes.
Rgb aolp_color(std::uint16_t azimuth, std::uint16_t dolp, std::uint16_t output_maximum);

// The degree picture: d / M through viridis, approximated by straight lines
// between its colours at 0, 0.1, ..., 1.
Rgb dolp_color(std::uint16_t dolp, std::uint16_t output_maximum);

// Whole images: count pixels in, 3 x count bytes out.
void paint_aolp_color(const std::uint16_t* azimuth, const std::uint16_t* dolp, std::size_t count,
                      std::uint16_t output_maximum, std::uint8_t* rgb);
void paint_dolp_color(const std::uint16_t* dolp, std::size_t count, std::uint16_t output_maximum, std::uint8_t* rgb);

}  // namespace ksi_cli
