#include "color_pictures.h"

#include <algorithm>
#include <cmath>

namespace ksi_cli {
namespace {

std::uint8_t to_byte(double x) { return static_cast<std::uint8_t>(std::floor(255.0 * x + 0.5)); }

// viridis (matplotlib's perceptually uniform map) at 0, 0.1, ..., 1.
constexpr double viridis[11][3] = {
    {68, 1, 84},    {72, 36, 117},  {65, 68, 135},  {53, 95, 141},   {42, 120, 142}, {33, 145, 140},
    {34, 168, 132}, {68, 191, 112}, {122, 209, 81}, {189, 223, 38},  {253, 231, 37},
};

}  // namespace

Rgb aolp_color(std::uint16_t azimuth, std::uint16_t dolp, std::uint16_t output_maximum)
{
    const double maximum = output_maximum;
    const double h = std::min(azimuth / maximum, 1.0);
    const double v = std::min(dolp / maximum, 1.0);
    const double h6 = 6.0 * h;
    const double whole = std::floor(h6);
    const double f = h6 - whole;
    const int sector = static_cast<int>(whole) % 6;
    const double q = v * (1.0 - f);
    const double t = v * f;
    switch (sector) {
    case 0: return {to_byte(v), to_byte(t), to_byte(0)};
    case 1: return {to_byte(q), to_byte(v), to_byte(0)};
    case 2: return {to_byte(0), to_byte(v), to_byte(t)};
    case 3: return {to_byte(0), to_byte(q), to_byte(v)};
    case 4: return {to_byte(t), to_byte(0), to_byte(v)};
    default: return {to_byte(v), to_byte(0), to_byte(q)};
    }
}

Rgb dolp_color(std::uint16_t dolp, std::uint16_t output_maximum)
{
    const double position = std::min(static_cast<double>(dolp) / output_maximum, 1.0) * 10.0;
    const int lower = std::min(static_cast<int>(position), 9);
    const double f = position - lower;
    Rgb rgb{};
    for (int channel = 0; channel < 3; ++channel) {
        const double from = viridis[lower][channel], to = viridis[lower + 1][channel];
        rgb[channel] = static_cast<std::uint8_t>(std::floor(from + f * (to - from) + 0.5));
    }
    return rgb;
}

void paint_aolp_color(const std::uint16_t* azimuth, const std::uint16_t* dolp, std::size_t count,
                      std::uint16_t output_maximum, std::uint8_t* rgb)
{
    for (std::size_t i = 0; i < count; ++i, rgb += 3) {
        const Rgb color = aolp_color(azimuth[i], dolp[i], output_maximum);
        std::copy(color.begin(), color.end(), rgb);
    }
}

void paint_dolp_color(const std::uint16_t* dolp, std::size_t count, std::uint16_t output_maximum, std::uint8_t* rgb)
{
    for (std::size_t i = 0; i < count; ++i, rgb += 3) {
        const Rgb color = dolp_color(dolp[i], output_maximum);
        std::copy(color.begin(), color.end(), rgb);
    }
}

}  // namespace ksi_cli
