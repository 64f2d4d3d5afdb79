// The colour sensor module (cli/color_sensor): where the planes lie, their
// extraction, the library's transform of each, the combination and its
// arctangent, against the test's own model of the sensor.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "color_mosaic.h"
#include "color_sensor/color_frame_transform.h"
#include "color_sensor/stokes_combination.h"

namespace {

namespace kp = kestrion::polarization;
using namespace color_test;
using ksi_cli::Color_layout_error;
using ksi_cli::Color_order;
using ksi_cli::Color_plane;
using ksi_cli::Output;
using ksi_cli::Output_set;

const std::vector<std::string> orders{"rggb", "bggr", "grbg", "gbrg"};

Color_order order_named(const std::string& name) { return *ksi_cli::color_order_from_name(name); }

std::vector<std::uint16_t> random_frame(std::int32_t width, std::int32_t height, int bits, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> sample(0, (1 << bits) - 1);
    std::vector<std::uint16_t> frame(static_cast<std::size_t>(width) * height);
    for (auto& pixel : frame)
        pixel = static_cast<std::uint16_t>(sample(generator));
    return frame;
}

TEST(ColorLayout, PlanesStartAtTheQuartetOfTheirFilterAndKeepTheirSensorPlaneOrigin)
{
    // rggb from a frame at sensor column 2, row 0: the frame's first quartet
    // is the sensor's G1 (top right), its second the next super-pixel's R.
    auto layout = ksi_cli::color_layout(12, 8, 2, 0, Color_order::rggb);
    EXPECT_EQ(layout.place(Color_plane::green1).quartet_column, 0);
    EXPECT_EQ(layout.place(Color_plane::green1).quartet_row, 0);
    EXPECT_EQ(layout.place(Color_plane::red).quartet_column, 1);
    EXPECT_EQ(layout.place(Color_plane::blue).quartet_column, 0);
    EXPECT_EQ(layout.place(Color_plane::blue).quartet_row, 1);
    EXPECT_EQ(layout.place(Color_plane::green1).origin_x, 0);  // sensor plane column 0..1: super-pixel 0
    EXPECT_EQ(layout.place(Color_plane::red).origin_x, 2);     // super-pixel 1
    EXPECT_EQ(layout.place(Color_plane::red).origin_y, 0);
    // gbrg from sensor (-6, 10): column -6 is the second quartet column of
    // super-pixel -2, row 10 the second quartet row of super-pixel 2.
    layout = ksi_cli::color_layout(9, 7, -6, 10, Color_order::gbrg);
    EXPECT_EQ(layout.plane_width, 4);
    EXPECT_EQ(layout.plane_height, 2);
    const auto& g2 = layout.place(Color_plane::green2);  // bottom right of the sensor's super-pixel
    EXPECT_EQ(g2.quartet_column, 0);
    EXPECT_EQ(g2.quartet_row, 0);
    EXPECT_EQ(g2.origin_x, -4);
    EXPECT_EQ(g2.origin_y, 4);
    const auto& g1 = layout.place(Color_plane::green1);  // top left
    EXPECT_EQ(g1.quartet_column, 1);
    EXPECT_EQ(g1.quartet_row, 1);
    EXPECT_EQ(g1.origin_x, -2);
    EXPECT_EQ(g1.origin_y, 6);
}

TEST(ColorLayout, ExtractedPlanesEqualTheTestsCutAtEveryOrderAndOrigin)
{
    for (const std::string& order : orders)
        for (auto [x, y] : {std::pair{0, 0}, {2, 0}, {0, 2}, {2, 2}, {-2, -6}, {6, 10}, {1000002, 4}})
            for (auto [width, height] : {std::pair{4, 4}, {9, 7}, {30, 21}, {16, 12}}) {
                SCOPED_TRACE(order + " origin " + std::to_string(x) + "," + std::to_string(y) + " size " +
                             std::to_string(width) + "x" + std::to_string(height));
                const Mosaic_geometry geometry{width, height, x, y, 0, order};
                const auto frame = random_frame(width, height, 16, static_cast<unsigned>(width * 31 + x));
                const Planes expected = cut_planes(frame, geometry);
                const auto layout = ksi_cli::color_layout(width, height, x, y, order_named(order));
                ASSERT_EQ(layout.plane_width, expected.width);
                ASSERT_EQ(layout.plane_height, expected.height);
                for (Color_plane plane : ksi_cli::every_color_plane) {
                    std::vector<std::uint16_t> extracted(expected.pixels[0].size());
                    ksi_cli::extract_plane(frame.data(), width, layout, plane, extracted.data());
                    EXPECT_EQ(extracted, expected.pixels[static_cast<int>(plane)]) << "plane " << int(plane);
                }
            }
}

TEST(ColorLayout, OddOriginsAndFramesSmallerThanASuperPixelAreRefused)
{
    for (auto [x, y] : {std::pair{1, 0}, {0, 1}, {-3, 2}, {2, -1}}) {
        try {
            ksi_cli::color_layout(16, 16, x, y, Color_order::rggb);
            ADD_FAILURE() << "origin " << x << "," << y << " accepted";
        } catch (const Color_layout_error& error) {
            EXPECT_NE(std::string(error.what()).find("starts inside a polarizer quartet"), std::string::npos)
                << error.what();
        }
    }
    for (auto [width, height] : {std::pair{3, 8}, {8, 3}, {2, 2}}) {
        try {
            ksi_cli::color_layout(width, height, 0, 0, Color_order::rggb);
            ADD_FAILURE() << width << "x" << height << " accepted";
        } catch (const Color_layout_error& error) {
            EXPECT_EQ(std::string(error.what()), std::to_string(width) + "x" + std::to_string(height) +
                                                     " is smaller than one colour super-pixel (4x4)");
        }
    }
}

TEST(Arctangent, WithinTwoTrillionthsOfTheCLibrarysAtan2)
{
    std::mt19937_64 generator(7);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-30, 30);
    double worst = 0;
    for (int i = 0; i < 200000; ++i) {
        const double y = std::ldexp(unit(generator), exponent(generator));
        const double x = std::ldexp(unit(generator), exponent(generator));
        worst = std::max(worst, std::abs(ksi_cli::polarization_arctangent(y, x) - std::atan2(y, x)));
    }
    for (double y : {0.0, 1.0, -1.0, 3.0, -1e-300})
        for (double x : {0.0, 1.0, -1.0, 3.0, 1e300, -1e-300}) {
            if (y == 0 && x == 0)
                continue;
            worst = std::max(worst, std::abs(ksi_cli::polarization_arctangent(y, x) - std::atan2(y, x)));
        }
    EXPECT_LT(worst, 2e-12);
    EXPECT_EQ(ksi_cli::polarization_arctangent(0.0, 0.0), 0.0);
    EXPECT_EQ(ksi_cli::polarization_arctangent(0.0, -2.0), 3.141592653589793);
}

TEST(StokesSum, APlaneWithoutLightOrWithoutAFinitePairAddsOnlyItsIntensity)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    ksi_cli::Stokes_sum sum;
    sum.add(0, infinity, nan);
    sum.add(300, nan, 0.5f);
    sum.add(100, 0.5f, 0.0f);
    sum.add(200, 0.0f, -0.25f);
    EXPECT_EQ(sum.s0(), 600.0);
    EXPECT_EQ(sum.s1(), 50.0);
    EXPECT_EQ(sum.s2(), -50.0);
    // DoLP sqrt(50^2 + 50^2) / 600, angle atan2(-50, 50) / 2 = -22.5 degrees.
    EXPECT_EQ(sum.dolp_element(60000), static_cast<std::uint16_t>(std::floor(std::sqrt(5000.0) / 600 * 60000 + 0.5)));
    EXPECT_EQ(sum.aolp_element(60000), 22500);
    const ksi_cli::Stokes_sum dark;
    EXPECT_EQ(dark.dolp_element(65535), 0);
    EXPECT_EQ(dark.aolp_element(65535), 32768);  // angle 0: (0 + pi) / (2 pi) M rounded half up
}

const Output_set every_color_image = Output_set::of({Output::s0_color, Output::aolp, Output::dolp, Output::imin,
                                                     Output::imax, Output::aolp_r, Output::aolp_g, Output::aolp_b,
                                                     Output::dolp_r, Output::dolp_g, Output::dolp_b});

// Every image of the module's transform against the test's model.
void expect_transform_matches_model(const std::vector<std::uint16_t>& frame, const Mosaic_geometry& geometry,
                                    std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    kp::Module module;
    kp::Processor processor;
    ksi_cli::Color_frame_transform transform(processor);
    const ksi_cli::Color_transform_settings settings{static_cast<kp::Phase>(geometry.phase), geometry.origin_x,
                                                     geometry.origin_y, order_named(geometry.order), bit_depth,
                                                     output_maximum};
    transform.transform({frame.data(), geometry.width, geometry.height}, settings, every_color_image);

    const Planes planes = cut_planes(frame, geometry);
    std::array<Plane_outputs, 4> library;
    for (int plane = 0; plane < 4; ++plane) {
        library[plane] =
            library_plane(planes.pixels[plane], planes.width, planes.height, geometry.phase, bit_depth, output_maximum);
        EXPECT_EQ(transform.plane_s0(static_cast<Color_plane>(plane)), library[plane].s0) << "plane " << plane;
        const auto& normalized = transform.plane_normalized(static_cast<Color_plane>(plane));
        ASSERT_EQ(normalized.size(), library[plane].normalized.size());
        EXPECT_EQ(std::memcmp(normalized.data(), library[plane].normalized.data(), 4 * normalized.size()), 0)
            << "plane " << plane << ": normalized pairs differ bitwise";
    }
    ASSERT_EQ(transform.layout().plane_width, planes.width);
    ASSERT_EQ(transform.layout().plane_height, planes.height);
    const std::size_t pixels = transform.pixels();
    const auto& rgb = transform.image(Output::s0_color);
    ASSERT_EQ(rgb.size(), 3 * pixels);
    struct Channel {
        Output aolp, dolp;
        std::vector<int> members;
    };
    const std::vector<Channel> channels{{Output::aolp, Output::dolp, {0, 1, 2, 3}},
                                        {Output::aolp_r, Output::dolp_r, {0}},
                                        {Output::aolp_g, Output::dolp_g, {1, 2}},
                                        {Output::aolp_b, Output::dolp_b, {3}}};
    for (std::size_t i = 0; i < pixels; ++i) {
        SCOPED_TRACE("element " + std::to_string(i));
        ASSERT_EQ(rgb[3 * i], library[0].s0[i]);
        ASSERT_EQ(rgb[3 * i + 1], (library[1].s0[i] + library[2].s0[i] + 1) / 2);
        ASSERT_EQ(rgb[3 * i + 2], library[3].s0[i]);
        for (const Channel& channel : channels) {
            const Combined expected = combine(library, channel.members, i, output_maximum);
            ASSERT_LE(angle_distance(transform.image(channel.aolp)[i], expected.aolp, output_maximum), 1.0)
                << ksi_cli::output_name(channel.aolp) << " expected " << expected.aolp;
            ASSERT_LE(std::abs(transform.image(channel.dolp)[i] - expected.dolp), 1.0)
                << ksi_cli::output_name(channel.dolp) << " expected " << expected.dolp;
        }
        const std::uint32_t mean =
            (std::uint32_t(library[0].s0[i]) + library[1].s0[i] + library[2].s0[i] + library[3].s0[i] + 2) / 4;
        const std::uint16_t dolp = transform.image(Output::dolp)[i];
        ASSERT_EQ(transform.image(Output::imin)[i], expected_imin(mean, dolp, output_maximum));
        ASSERT_EQ(transform.image(Output::imax)[i], expected_imax(mean, dolp, output_maximum));
    }
}

TEST(ColorFrameTransform, RandomFramesAtEverySizeOrderOriginAndPhase)
{
    int phase = 0;
    unsigned seed = 100;
    for (const std::string& order : orders)
        for (auto [x, y] : {std::pair{0, 0}, {2, 0}, {0, 2}, {-2, -6}, {6, 10}})
            for (auto [width, height] : {std::pair{4, 4}, {9, 7}, {70, 51}, {64, 48}, {130, 66}}) {
                SCOPED_TRACE(order + " origin " + std::to_string(x) + "," + std::to_string(y) + " size " +
                             std::to_string(width) + "x" + std::to_string(height) + " phase " + std::to_string(phase));
                const Mosaic_geometry geometry{width, height, x, y, phase, order};
                const std::uint16_t output_maximum = seed % 2 == 0 ? 4095 : 65535;
                expect_transform_matches_model(random_frame(width, height, 12, ++seed), geometry, 12, output_maximum);
                phase = (phase + 1) % 4;
            }
}

// Uniform patches per quadrant, each of its own colour, angle and degree,
// seen with noise and without, and a gradient.
struct Patch {
    std::array<double, 3> intensity;
    double degree;
    double angle;
};
const std::array<Patch, 4> patches{{{{3000, 800, 400}, 0.9, -60},
                                    {{500, 2800, 700}, 0.4, 15},
                                    {{600, 900, 3500}, 0.7, 80},
                                    {{2000, 2000, 2000}, 0.0, 0}}};

Light quadrant_light(double x, double y, int channel, double width, double height)
{
    const Patch& patch = patches[(y >= height / 2 ? 2 : 0) + (x >= width / 2 ? 1 : 0)];
    return {patch.intensity[channel], patch.degree, patch.angle};
}

TEST(ColorFrameTransform, QuadrantsOfKnownColourAngleAndDegree)
{
    const std::int32_t width = 96, height = 64;
    for (const std::string& order : {std::string("rggb"), std::string("gbrg")})
        for (int phase : {0, 3}) {
            SCOPED_TRACE(order + " phase " + std::to_string(phase));
            const Mosaic_geometry geometry{width, height, 2, 0, phase, order};
            const Scene scene = [&](double x, double y, int channel) {
                return quadrant_light(x, y, channel, width, height);
            };
            const auto frame = render_mosaic(geometry, scene, 12);
            expect_transform_matches_model(frame, geometry, 12, 65535);
            expect_transform_matches_model(render_mosaic(geometry, scene, 12, 20.0, 5), geometry, 12, 65535);

            kp::Module module;
            kp::Processor processor;
            ksi_cli::Color_frame_transform transform(processor);
            transform.transform({frame.data(), width, height},
                                {static_cast<kp::Phase>(phase), 2, 0, order_named(order), 12, 65535},
                                every_color_image);
            const std::int32_t plane_width = transform.layout().plane_width;
            const double scale = 65535.0 / 4095.0;
            // Well inside each quadrant, away from the library's edge columns.
            for (int quadrant = 0; quadrant < 4; ++quadrant) {
                const Patch& patch = patches[quadrant];
                const int row = quadrant / 2 * 16 + 8, column = quadrant % 2 * 24 + 10;
                const std::size_t i = static_cast<std::size_t>(row) * plane_width + column;
                SCOPED_TRACE("quadrant " + std::to_string(quadrant));
                // S0 is half the sum of four samples, each rounded to an
                // integer: within one input unit.
                for (int channel = 0; channel < 3; ++channel)
                    EXPECT_NEAR(transform.image(Output::s0_color)[3 * i + channel], patch.intensity[channel] * scale,
                                scale + 1);
                const double degree = transform.image(Output::dolp)[i] / 65535.0;
                EXPECT_NEAR(degree, patch.degree, 2e-3);
                if (patch.degree > 0) {
                    const double angle = transform.image(Output::aolp)[i] / 65535.0 * 180.0 - 90.0;
                    EXPECT_NEAR(std::remainder(angle - patch.angle, 180.0), 0.0, 0.05);
                }
                // Imin: the unpolarized half of the light plus nothing of
                // the polarized part, over the mean of the four planes.
                const double mean = (patch.intensity[0] + 2 * patch.intensity[1] + patch.intensity[2]) / 4 * scale;
                EXPECT_NEAR(transform.image(Output::imin)[i], mean * (1 - patch.degree) / 2, 0.003 * mean + 1);
                EXPECT_NEAR(transform.image(Output::imax)[i], mean * (1 + patch.degree) / 2, 0.003 * mean + 1);
            }
        }
}

TEST(ColorFrameTransform, GradientWithSaturationAndDarkness)
{
    // Intensity from 0 (dark planes: S0 of 0) past the sensor's maximum
    // (clipped samples), the angle turning along the rows.
    const Mosaic_geometry geometry{66, 38, 0, 2, 1, "bggr"};
    const Scene scene = [](double x, double y, int channel) {
        return Light{std::max(0.0, (x - 8) * 90.0 * (channel + 1)), 0.5, -90 + 5 * y};
    };
    expect_transform_matches_model(render_mosaic(geometry, scene, 12), geometry, 12, 65535);
    expect_transform_matches_model(render_mosaic(geometry, scene, 12, 30.0, 9), geometry, 12, 1000);
}

TEST(ColorFrameTransform, OddOriginIsRefusedBeforeAnythingIsComputed)
{
    kp::Module module;
    kp::Processor processor;
    ksi_cli::Color_frame_transform transform(processor);
    const auto frame = random_frame(8, 8, 12, 3);
    EXPECT_THROW(transform.transform({frame.data(), 8, 8}, {kp::Phase::degrees_0, 3, 0, Color_order::rggb, 12, 65535},
                                     every_color_image),
                 Color_layout_error);
    EXPECT_THROW(transform.transform({frame.data(), 3, 8}, {kp::Phase::degrees_0, 0, 0, Color_order::rggb, 12, 65535},
                                     every_color_image),
                 Color_layout_error);
}

}  // namespace
