#include "demo_scene.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace ksi_cli {
namespace {

constexpr double pi = 3.14159265358979323846;

// Polarizer angle in degrees over each pixel of a phase-0 mosaic.
double polarizer_angle(int row, int column)
{
    static const double angles[2][2] = {{0.0, 135.0}, {45.0, 90.0}};
    return angles[row & 1][column & 1];
}

// A fixed linear congruential sequence, so every run draws the same noise.
class Noise {
public:
    double gaussian() { return std::sqrt(-2.0 * std::log(uniform())) * std::cos(2.0 * pi * uniform()); }

private:
    double uniform()
    {
        state_ = state_ * 1664525u + 1013904223u;
        return ((state_ >> 8) + 0.5) / 16777216.0;
    }
    std::uint32_t state_ = 12345u;
};

}  // namespace

void render_demo_scene(Frame& frame)
{
    constexpr int width = 1224, height = 1024;
    frame.width = width;
    frame.height = height;
    frame.bit_depth = demo_scene_bit_depth;
    frame.pixels.resize(static_cast<std::size_t>(width) * height);
    const double input_maximum = (1 << demo_scene_bit_depth) - 1;
    Noise noise;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            const double dx = column - width / 2.0, dy = row - height / 2.0;
            const bool in_disc = dx * dx + dy * dy < (0.35 * height) * (0.35 * height);
            const double intensity = in_disc ? 3000.0 : 1200.0;
            const double degree = in_disc ? 0.8 : 0.1;
            const double angle = in_disc ? -90.0 + 180.0 * column / (width - 1) : 30.0;
            const double analyser = (angle - polarizer_angle(row, column)) * pi / 180.0;
            const double value = intensity / 2.0 * (1.0 + degree * std::cos(2.0 * analyser)) + 12.0 * noise.gaussian();
            frame.pixels[static_cast<std::size_t>(row) * width + column] =
                static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, input_maximum)));
        }
}

}  // namespace ksi_cli
