// What reaches the library (calibration, origin), the pictures, and threads.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli_test_support.h"

namespace cli_test {
namespace {

constexpr std::int32_t width = 70, height = 51;

Run_result process(const Temporary_directory& directory, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "process");
    return run_tool(arguments, directory.path());
}

TEST(Calibration, MatricesFromTheFileReachTheLibrary)
{
    Temporary_directory directory;
    const auto frame = random_mosaic(width, height, 12, 31);
    write_png(directory / "frame.png", frame, width, height, 16);
    std::array<std::array<float, 16>, 4> matrices{};
    nlohmann::json document;
    const char* const keys[4] = {"matrix_0", "matrix_45", "matrix_90", "matrix_135"};
    for (int m = 0; m < 4; ++m) {
        for (int i = 0; i < 16; ++i)
            matrices[m][i] = 0.25f * static_cast<float>((i * 7 + m * 3) % 9) - 1.0f;
        document[keys[m]] = matrices[m];
    }
    std::ofstream(directory / "calibration.json") << document.dump();
    const Run_result result = process(directory, {"--phase", "45", "--bit-depth", "12", "--calibration",
                                                  "calibration.json", "--outputs", all_images, "frame.png"});
    ASSERT_EQ(result.exit_status, 0) << result.err;
    Transform_arguments arguments{1, 0, 0, 12};
    arguments.calibration = matrices;
    expect_images_equal_library(directory.path(), "frame", frame, width, height, arguments);

    // The matrices change the edge columns and last rows, so without them
    // the S0 image differs.
    const auto defaults = library_transform(frame, width, height, {1, 0, 0, 12});
    EXPECT_NE(read_png(directory / "frame_s0.png").samples, defaults.images[0]);
}

TEST(Origin, ReBasesThePhaseAsTheLibraryDoes)
{
    Temporary_directory directory;
    const auto frame = random_mosaic(width, height, 12, 32);
    const auto at_zero = library_transform(frame, width, height, {1, 0, 0, 12});
    for (const auto& [text, x, y] : {std::tuple{"3,2", 3, 2}, std::tuple{"-3,2", -3, 2}, std::tuple{"0,-1", 0, -1}}) {
        SCOPED_TRACE(text);
        const std::string stem = std::string("origin_") + std::to_string(x + 10) + "_" + std::to_string(y + 10);
        write_png(directory / (stem + ".png"), frame, width, height, 16);
        const Run_result result = process(directory, {"--phase", "45", "--bit-depth", "12", "--origin", text,
                                                      "--outputs", all_images, stem + ".png"});
        ASSERT_EQ(result.exit_status, 0) << result.err;
        expect_images_equal_library(directory.path(), stem, frame, width, height, {1, x, y, 12});
        EXPECT_NE(read_png(directory / (stem + "_aolp.png")).samples, at_zero.images[3]);
    }
}

TEST(Threads, TwoJobsWriteTheSameFilesAsOne)
{
    Temporary_directory directory;
    std::filesystem::create_directory(directory / "in");
    for (unsigned i = 0; i < 6; ++i)
        write_png(directory / "in" / ("frame" + std::to_string(i) + ".png"),
                  random_mosaic(width + 2 * i, height, 12, 40 + i), width + 2 * i, height, 16);
    const std::string outputs = "normalized,s0,s1,s2,aolp,dolp,aolp_color,dolp_color";
    ASSERT_EQ(process(directory, {"--phase", "90", "--outputs", outputs, "-j", "1", "-o", "one", "in"}).exit_status, 0);
    const Run_result two = process(directory, {"--phase", "90", "--outputs", outputs, "-j", "2", "-o", "two", "in"});
    ASSERT_EQ(two.exit_status, 0) << two.err;
    EXPECT_NE(two.out.find("summed over 2 threads"), std::string::npos) << two.out;
    const auto names = file_names(directory / "one");
    ASSERT_EQ(names.size(), 48u);
    EXPECT_EQ(file_names(directory / "two"), names);
    for (const std::string& name : names)
        EXPECT_EQ(file_bytes(directory / "one" / name), file_bytes(directory / "two" / name)) << name;
}

// A noise-free 12-bit mosaic of vertical bands, each of one angle and degree
// of polarization, seen through a phase-0 quartet.
struct Band {
    double angle;   // degrees, -90..90
    double degree;  // 0..1
};

const std::vector<Band> bands{{-80, 1.0}, {-60, 0.5}, {-30, 1.0}, {0, 0.75}, {15, 1.0},
                              {45, 0.25}, {60, 1.0},  {85, 0.5},  {20, 0.0}};
constexpr int band_width = 8, band_height = 16;

std::vector<std::uint16_t> render_bands()
{
    const double pi = 3.14159265358979323846, intensity = 3000.0;
    static const double polarizer[2][2] = {{0.0, 135.0}, {45.0, 90.0}};
    std::vector<std::uint16_t> frame;
    for (int row = 0; row < band_height; ++row)
        for (std::size_t column = 0; column < bands.size() * band_width; ++column) {
            const Band& band = bands[column / band_width];
            const double analyser = (band.angle - polarizer[row & 1][column & 1]) * pi / 180.0;
            frame.push_back(static_cast<std::uint16_t>(
                std::lround(intensity / 2.0 * (1.0 + band.degree * std::cos(2.0 * analyser)))));
        }
    return frame;
}

// Hue in degrees and value in 0..1 of an RGB byte triple.
std::pair<double, double> hue_and_value(int r, int g, int b)
{
    const int maximum = std::max({r, g, b}), minimum = std::min({r, g, b});
    const double delta = maximum - minimum;
    double hue = 0;
    if (delta > 0) {
        if (maximum == r)
            hue = 60.0 * std::fmod((g - b) / delta + 6.0, 6.0);
        else if (maximum == g)
            hue = 60.0 * ((b - r) / delta + 2.0);
        else
            hue = 60.0 * ((r - g) / delta + 4.0);
    }
    return {hue, maximum / 255.0};
}

TEST(Pictures, AnglePictureShowsTheBandsAngleAsHueAndDegreeAsValue)
{
    Temporary_directory directory;
    const std::int32_t frame_width = static_cast<std::int32_t>(bands.size() * band_width);
    write_png(directory / "bands.png", render_bands(), frame_width, band_height, 16, 1, 0);
    const Run_result result = process(directory, {"--phase", "0", "--bit-depth", "12", "--outputs",
                                                  "aolp_color,dolp_color", "bands.png"});
    ASSERT_EQ(result.exit_status, 0) << result.err;
    const Image angle = read_png(directory / "bands_aolp_color.png");
    const Image degree = read_png(directory / "bands_dolp_color.png");
    ASSERT_EQ(angle.channels, 3);
    ASSERT_EQ(angle.depth, 8);
    ASSERT_EQ(degree.channels, 3);
    for (std::size_t b = 0; b < bands.size(); ++b)
        for (int row = 4; row < 12; ++row)
            for (int column = 3; column < 5; ++column) {
                SCOPED_TRACE("band " + std::to_string(b) + " row " + std::to_string(row));
                const std::size_t pixel = 3 * (row * static_cast<std::size_t>(frame_width) + b * band_width + column);
                const auto [hue, value] =
                    hue_and_value(angle.samples[pixel], angle.samples[pixel + 1], angle.samples[pixel + 2]);
                // One 8-bit step of value, and of hue one step of the
                // channel that carries it at this value (60 / (255 v)
                // degrees), plus the library's own tolerance of a tenth of a
                // degree of angle, which is two degrees of hue.
                EXPECT_NEAR(value, bands[b].degree, 1.0 / 255 + 1e-9);
                if (bands[b].degree > 0) {
                    const double expected_hue = 2.0 * (bands[b].angle + 90.0);
                    const double difference = std::remainder(hue - expected_hue, 360.0);
                    EXPECT_LE(std::abs(difference), 60.0 / (255.0 * bands[b].degree) + 0.2) << "hue " << hue;
                }
                // The degree picture: viridis' ends and middle.
                const std::uint16_t* rgb = &degree.samples[pixel];
                const std::array<int, 3> expected = bands[b].degree == 0.0   ? std::array<int, 3>{68, 1, 84}
                                                    : bands[b].degree == 1.0 ? std::array<int, 3>{253, 231, 37}
                                                    : bands[b].degree == 0.5 ? std::array<int, 3>{33, 145, 140}
                                                                             : std::array<int, 3>{-1, -1, -1};
                if (expected[0] >= 0)
                    for (int channel = 0; channel < 3; ++channel)
                        EXPECT_NEAR(rgb[channel], expected[channel], 1) << "channel " << channel;
            }
}

// The angle picture is the documented function of the two 16-bit images.
TEST(Pictures, AnglePictureIsTheDocumentedFunctionOfAzimuthAndDolp)
{
    Temporary_directory directory;
    const std::int32_t frame_width = static_cast<std::int32_t>(bands.size() * band_width);
    write_png(directory / "bands.png", render_bands(), frame_width, band_height, 16);
    const Run_result result = process(directory, {"--phase", "0", "--bit-depth", "12", "--output-maximum", "50000",
                                                  "--outputs", "aolp,dolp,aolp_color", "bands.png"});
    ASSERT_EQ(result.exit_status, 0) << result.err;
    const Image azimuth = read_png(directory / "bands_aolp.png");
    const Image dolp = read_png(directory / "bands_dolp.png");
    const Image picture = read_png(directory / "bands_aolp_color.png");
    const double maximum = 50000;
    for (std::size_t i = 0; i < azimuth.samples.size(); ++i) {
        const double h = std::min(azimuth.samples[i] / maximum, 1.0), v = std::min(dolp.samples[i] / maximum, 1.0);
        const double sector_start = std::floor(6 * h), f = 6 * h - sector_start;
        const double q = v * (1 - f), t = v * f;
        const double rgb[6][3] = {{v, t, 0}, {q, v, 0}, {0, v, t}, {0, q, v}, {t, 0, v}, {v, 0, q}};
        const int sector = static_cast<int>(sector_start) % 6;
        for (int channel = 0; channel < 3; ++channel)
            ASSERT_EQ(picture.samples[3 * i + channel], std::floor(255 * rgb[sector][channel] + 0.5))
                << "pixel " << i << " channel " << channel;
    }
}

}  // namespace
}  // namespace cli_test
