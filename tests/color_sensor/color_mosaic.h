// Test-side model of a colour polarization sensor, written apart from the
// tool's code: rendering mosaics of known scenes, cutting the colour planes
// out pixel by pixel, the library's transform of each plane through the C
// interface, and the combination in plain double precision with the C
// library's atan2.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace color_test {

// The light of one colour channel at a point: intensity (input units),
// degree 0..1 and angle in degrees.
struct Light {
    double intensity = 0;
    double degree = 0;
    double angle = 0;
};

// Scene: (x, y, channel 0 red / 1 green / 2 blue) -> light, in frame pixels.
using Scene = std::function<Light(double x, double y, int channel)>;

struct Mosaic_geometry {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    int phase = 0;           // 0..3: 0, 45, 90, 135 degrees over sensor pixel (0, 0)
    std::string order = "rggb";
};

// Polarizer angle in degrees over sensor pixel (x, y).
double polarizer_angle(int phase, std::int64_t x, std::int64_t y);
// 'r', 'g' or 'b' over sensor pixel (x, y), and for 'g' whether the quartet
// is in its super-pixel's top row (G1).
char filter_color(const std::string& order, std::int64_t x, std::int64_t y);
// 0 R, 1 G1, 2 G2, 3 B.
int plane_of(const std::string& order, std::int64_t x, std::int64_t y);

// Noise-free (noise 0) or noisy samples of `bits` bits.
std::vector<std::uint16_t> render_mosaic(const Mosaic_geometry& geometry, const Scene& scene, int bits,
                                         double noise = 0, unsigned seed = 1);

struct Planes {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::array<std::vector<std::uint16_t>, 4> pixels;  // R, G1, G2, B
};

// Every frame pixel of a complete super-pixel placed into its plane.
Planes cut_planes(const std::vector<std::uint16_t>& frame, const Mosaic_geometry& geometry);

struct Plane_outputs {
    std::vector<std::uint16_t> s0;
    std::vector<float> normalized;
};

// kl_polarization_processor_transform of one plane, S0 and normalized.
Plane_outputs library_plane(const std::vector<std::uint16_t>& plane, std::int32_t width, std::int32_t height,
                            int phase, std::uint32_t bit_depth, std::uint16_t output_maximum);

// The combination of the planes `members` (indices into R, G1, G2, B) at
// element i, unrounded, in output units: angle (0..M over -90..+90 degrees)
// and degree (0..M).
struct Combined {
    double aolp = 0;
    double dolp = 0;
};
Combined combine(const std::array<Plane_outputs, 4>& planes, const std::vector<int>& members, std::size_t i,
                 std::uint16_t output_maximum);

// |actual - expected| for an angle element on its 0..M circle.
double angle_distance(double actual, double expected, std::uint16_t output_maximum);

// imin and imax by their integer definition.
std::uint16_t expected_imin(std::uint32_t s0, std::uint32_t dolp, std::uint32_t output_maximum);
std::uint16_t expected_imax(std::uint32_t s0, std::uint32_t dolp, std::uint32_t output_maximum);

}  // namespace color_test
