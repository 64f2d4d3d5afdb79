#include "color_demo_scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace ksi_cli {
namespace {

constexpr double pi = 3.14159265358979323846;

// Linear Stokes parameters of light of one colour channel.
struct Stokes {
    double s0 = 0, s1 = 0, s2 = 0;
};

// Light of intensity `intensity`, polarized to `degree` at `angle` degrees.
Stokes polarized(double intensity, double degree, double angle)
{
    const double twice = 2.0 * angle * pi / 180.0;
    return {intensity, intensity * degree * std::cos(twice), intensity * degree * std::sin(twice)};
}

Stokes operator+(Stokes a, const Stokes& b) { return {a.s0 + b.s0, a.s1 + b.s1, a.s2 + b.s2}; }

using Rgb_light = std::array<double, 3>;

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
    std::uint32_t state_ = 54321u;
};

constexpr int width = 1224, height = 1024;

// The scene's light of colour channel `channel` (0 red, 1 green, 2 blue) at
// frame position (x, y).
Stokes scene_light(double x, double y, int channel)
{
    const double across = x / (width - 1);
    const Rgb_light background{1400.0 * (1.0 - across) + 300.0, 700.0, 1500.0 * across + 300.0};
    Stokes light = polarized(background[channel], 0.1, 30.0);

    struct Paint {
        double x, y;
        Rgb_light color;
    };
    static const Paint paints[3] = {{0.2, 0.3, {2600, 400, 350}}, {0.5, 0.22, {450, 2400, 500}},
                                    {0.8, 0.3, {400, 600, 2700}}};
    for (const Paint& paint : paints) {
        const double dx = x - paint.x * width, dy = y - paint.y * height;
        if (dx * dx + dy * dy < (0.13 * height) * (0.13 * height))
            light = polarized(paint.color[channel], 0.03, -45.0);
    }
    const double cx = x - 0.5 * width, cy = y - 0.62 * height;
    if (cx * cx + cy * cy < (0.2 * height) * (0.2 * height)) {
        const Rgb_light yellow{2600, 2300, 500};
        const double angle = -90.0 + 180.0 * (cx + 0.2 * height) / (0.4 * height);
        light = polarized(yellow[channel], 0.8, angle);
    }
    // Glare: a reflection of white light, added on top of everything.
    const double band = y - 0.78 * height + 0.25 * (x - 0.5 * width);
    if (std::abs(band) < 0.07 * height)
        light = light + polarized(1300.0, 0.9, 60.0);
    return light;
}

}  // namespace

void render_color_demo_scene(Frame& frame)
{
    frame.width = width;
    frame.height = height;
    frame.bit_depth = color_demo_scene_bit_depth;
    frame.pixels.resize(static_cast<std::size_t>(width) * height);
    const double input_maximum = (1 << color_demo_scene_bit_depth) - 1;
    // Phase 0: polarizer angle over each pixel of a quartet.
    static const double polarizer[2][2] = {{0.0, 135.0}, {45.0, 90.0}};
    // rggb: the colour channel over each quartet of a super-pixel.
    static const int filter[2][2] = {{0, 1}, {1, 2}};
    Noise noise;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            // Every pixel of a quartet sees the light at the quartet's centre.
            const double x = (column & ~1) + 0.5, y = (row & ~1) + 0.5;
            const Stokes light = scene_light(x, y, filter[(row >> 1) & 1][(column >> 1) & 1]);
            const double analyser = 2.0 * polarizer[row & 1][column & 1] * pi / 180.0;
            const double value =
                (light.s0 + light.s1 * std::cos(analyser) + light.s2 * std::sin(analyser)) / 2.0 + 12.0 * noise.gaussian();
            frame.pixels[static_cast<std::size_t>(row) * width + column] =
                static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, input_maximum)));
        }
}

}  // namespace ksi_cli
