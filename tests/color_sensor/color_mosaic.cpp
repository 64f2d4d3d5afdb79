#include "color_mosaic.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

#include "kestrion_ksi_polarization_processor.h"

namespace color_test {
namespace {

constexpr double pi = 3.14159265358979323846;

std::int64_t floor_div(std::int64_t a, std::int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

}  // namespace

double polarizer_angle(int phase, std::int64_t x, std::int64_t y)
{
    static const double layouts[4][2][2] = {
        {{0, 135}, {45, 90}}, {{45, 90}, {0, 135}}, {{90, 45}, {135, 0}}, {{135, 0}, {90, 45}}};
    return layouts[phase][y & 1][x & 1];
}

char filter_color(const std::string& order, std::int64_t x, std::int64_t y)
{
    const std::int64_t quartet_x = floor_div(x, 2) & 1, quartet_y = floor_div(y, 2) & 1;
    return order[static_cast<std::size_t>(2 * quartet_y + quartet_x)];
}

int plane_of(const std::string& order, std::int64_t x, std::int64_t y)
{
    switch (filter_color(order, x, y)) {
    case 'r': return 0;
    case 'b': return 3;
    default: return (floor_div(y, 2) & 1) == 0 ? 1 : 2;
    }
}

std::vector<std::uint16_t> render_mosaic(const Mosaic_geometry& geometry, const Scene& scene, int bits, double noise,
                                         unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> gaussian(0.0, noise > 0 ? noise : 1.0);
    const double maximum = (1 << bits) - 1;
    std::vector<std::uint16_t> frame;
    frame.reserve(static_cast<std::size_t>(geometry.width) * geometry.height);
    for (std::int32_t y = 0; y < geometry.height; ++y)
        for (std::int32_t x = 0; x < geometry.width; ++x) {
            const std::int64_t sx = std::int64_t(geometry.origin_x) + x, sy = std::int64_t(geometry.origin_y) + y;
            const char color = filter_color(geometry.order, sx, sy);
            const int channel = color == 'r' ? 0 : color == 'g' ? 1 : 2;
            const Light light = scene(x, y, channel);
            const double analyser = 2.0 * (light.angle - polarizer_angle(geometry.phase, sx, sy)) * pi / 180.0;
            double value = light.intensity / 2.0 * (1.0 + light.degree * std::cos(analyser));
            if (noise > 0)
                value += gaussian(generator);
            frame.push_back(static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, maximum))));
        }
    return frame;
}

Planes cut_planes(const std::vector<std::uint16_t>& frame, const Mosaic_geometry& geometry)
{
    Planes planes;
    planes.width = 2 * (geometry.width / 4);
    planes.height = 2 * (geometry.height / 4);
    for (auto& plane : planes.pixels)
        plane.assign(static_cast<std::size_t>(planes.width) * planes.height, 0);
    std::array<std::size_t, 4> placed{};
    for (std::int32_t y = 0; y < 2 * planes.height; ++y)
        for (std::int32_t x = 0; x < 2 * planes.width; ++x) {
            const int plane = plane_of(geometry.order, std::int64_t(geometry.origin_x) + x,
                                       std::int64_t(geometry.origin_y) + y);
            // Within its plane, a pixel keeps its place in its quartet and
            // its super-pixel's place in the frame.
            const std::size_t column = 2 * (x / 4) + x % 2, row = 2 * (y / 4) + y % 2;
            planes.pixels[plane][row * planes.width + column] = frame[static_cast<std::size_t>(y) * geometry.width + x];
            ++placed[plane];
        }
    for (std::size_t count : placed)
        if (count != static_cast<std::size_t>(planes.width) * planes.height)
            throw std::logic_error("a colour plane did not get a quarter of the super-pixels' pixels");
    return planes;
}

Plane_outputs library_plane(const std::vector<std::uint16_t>& plane, std::int32_t width, std::int32_t height,
                            int phase, std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    Plane_outputs outputs;
    outputs.s0.resize(static_cast<std::size_t>(width) * height);
    outputs.normalized.resize(2 * outputs.s0.size());
    kl_polarization_processor_module_initialize();
    void* processor = nullptr;
    int status = kl_polarization_processor_create_polarization_processor(&processor);
    if (status == status_success)
        // A plane's every pixel lies under the polarizer of the frame pixel
        // with its parities, so the plane has the frame's phase at (0, 0).
        status = kl_polarization_processor_transform(processor, phase, plane.data(), 0, 0, width, height, bit_depth,
                                                     output_maximum, outputs.normalized.data(), outputs.s0.data(),
                                                     nullptr, nullptr, nullptr, nullptr);
    kl_polarization_processor_destroy_polarization_processor(processor);
    kl_polarization_processor_module_terminate();
    if (status != status_success)
        throw std::runtime_error("the library refused a plane with status " + std::to_string(status));
    return outputs;
}

Combined combine(const std::array<Plane_outputs, 4>& planes, const std::vector<int>& members, std::size_t i,
                 std::uint16_t output_maximum)
{
    double s0 = 0, s1 = 0, s2 = 0;
    for (int member : members) {
        const double s = planes[member].s0[i];
        const double n1 = planes[member].normalized[2 * i], n2 = planes[member].normalized[2 * i + 1];
        s0 += s;
        if (s > 0 && std::isfinite(n1) && std::isfinite(n2)) {
            s1 += s * n1;
            s2 += s * n2;
        }
    }
    Combined combined;
    const double angle = 0.5 * std::atan2(s2, s1);  // -pi/2 .. pi/2
    combined.aolp = (angle + pi / 2) / pi * output_maximum;
    combined.dolp = s0 > 0 ? std::min(1.0, std::hypot(s1, s2) / s0) * output_maximum : 0.0;
    return combined;
}

double angle_distance(double actual, double expected, std::uint16_t output_maximum)
{
    const double difference = std::abs(actual - expected);
    return std::min(difference, output_maximum - difference);
}

std::uint16_t expected_imin(std::uint32_t s0, std::uint32_t dolp, std::uint32_t output_maximum)
{
    const std::uint64_t m = output_maximum;
    return static_cast<std::uint16_t>((std::uint64_t(s0) * (m - dolp) + m) / (2 * m));
}

std::uint16_t expected_imax(std::uint32_t s0, std::uint32_t dolp, std::uint32_t output_maximum)
{
    const std::uint64_t m = output_maximum;
    return static_cast<std::uint16_t>(std::min<std::uint64_t>(m, (std::uint64_t(s0) * (m + dolp) + m) / (2 * m)));
}

}  // namespace color_test
