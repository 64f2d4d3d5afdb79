// ksi-polarization with --sensor color, and imin and imax for both sensors,
// as a user runs it: mosaics written with libpng and libtiff, outputs read
// back and compared with the test's own model of the sensor (the library's
// transform of planes the test cuts out itself, the combination in double).
#include <gtest/gtest.h>

#include <cmath>

#include "cli_test_support.h"
#include "color_mosaic.h"

namespace cli_test {
namespace {

using color_test::Combined;
using color_test::Mosaic_geometry;
using color_test::Plane_outputs;

Run_result process(const Temporary_directory& directory, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "process");
    return run_tool(arguments, directory.path());
}

Image read_image(const std::filesystem::path& file)
{
    return file.extension() == ".png" ? read_png(file) : read_tiff(file);
}

const std::string every_color_output = "s0_color,aolp,dolp,imin,imax,aolp_r,aolp_g,aolp_b,dolp_r,dolp_g,dolp_b";

// Every colour output the tool wrote for `stem` against the model.
void expect_color_outputs_match_model(const std::filesystem::path& directory, const std::string& stem,
                                      const std::vector<std::uint16_t>& frame, const Mosaic_geometry& geometry,
                                      std::uint32_t bit_depth, std::uint16_t output_maximum,
                                      const std::string& extension)
{
    const color_test::Planes planes = color_test::cut_planes(frame, geometry);
    std::array<Plane_outputs, 4> library;
    for (int plane = 0; plane < 4; ++plane)
        library[plane] = color_test::library_plane(planes.pixels[plane], planes.width, planes.height, geometry.phase,
                                                   bit_depth, output_maximum);
    const auto read = [&](const std::string& name, int channels) {
        const Image image = read_image(directory / (stem + "_" + name + "." + extension));
        EXPECT_EQ(image.width, planes.width) << name;
        EXPECT_EQ(image.height, planes.height) << name;
        EXPECT_EQ(image.channels, channels) << name;
        EXPECT_EQ(image.depth, 16) << name;
        return image.samples;
    };
    const auto rgb = read("s0_color", 3);
    const auto imin = read("imin", 1), imax = read("imax", 1);
    struct Channel {
        std::string aolp, dolp;
        std::vector<int> members;
        std::vector<std::uint16_t> aolp_image, dolp_image;
    };
    std::vector<Channel> channels{{"aolp", "dolp", {0, 1, 2, 3}, {}, {}},
                                  {"aolp_r", "dolp_r", {0}, {}, {}},
                                  {"aolp_g", "dolp_g", {1, 2}, {}, {}},
                                  {"aolp_b", "dolp_b", {3}, {}, {}}};
    for (Channel& channel : channels) {
        channel.aolp_image = read(channel.aolp, 1);
        channel.dolp_image = read(channel.dolp, 1);
    }
    const std::size_t pixels = static_cast<std::size_t>(planes.width) * planes.height;
    ASSERT_EQ(rgb.size(), 3 * pixels);
    for (std::size_t i = 0; i < pixels; ++i) {
        SCOPED_TRACE("element " + std::to_string(i));
        ASSERT_EQ(rgb[3 * i], library[0].s0[i]);
        ASSERT_EQ(rgb[3 * i + 1], (library[1].s0[i] + library[2].s0[i] + 1) / 2);
        ASSERT_EQ(rgb[3 * i + 2], library[3].s0[i]);
        for (const Channel& channel : channels) {
            const Combined expected = color_test::combine(library, channel.members, i, output_maximum);
            ASSERT_LE(color_test::angle_distance(channel.aolp_image[i], expected.aolp, output_maximum), 1.0)
                << channel.aolp;
            ASSERT_LE(std::abs(channel.dolp_image[i] - expected.dolp), 1.0) << channel.dolp;
        }
        const std::uint32_t mean =
            (std::uint32_t(library[0].s0[i]) + library[1].s0[i] + library[2].s0[i] + library[3].s0[i] + 2) / 4;
        ASSERT_EQ(imin[i], color_test::expected_imin(mean, channels[0].dolp_image[i], output_maximum));
        ASSERT_EQ(imax[i], color_test::expected_imax(mean, channels[0].dolp_image[i], output_maximum));
    }
}

std::string origin_text(std::int32_t x, std::int32_t y) { return std::to_string(x) + "," + std::to_string(y); }

TEST(ColorSensor, EveryOutputAtSizesNotMultiplesOfFourAndReBasedOrders)
{
    Temporary_directory directory;
    unsigned seed = 300;
    int phase = 0;
    for (const std::string order : {"rggb", "bggr", "grbg", "gbrg"})
        for (auto [width, height, x, y] : {std::tuple{70, 51, 0, 0}, {37, 22, 2, 0}, {24, 17, 0, 2}, {9, 13, -2, 6}}) {
            const Mosaic_geometry geometry{width, height, x, y, phase, order};
            SCOPED_TRACE(order + " " + std::to_string(width) + "x" + std::to_string(height) + " origin " +
                         origin_text(x, y));
            const auto frame = random_mosaic(width, height, 12, ++seed);
            const std::string stem = order + "_" + std::to_string(width);
            write_png(directory / (stem + ".png"), frame, width, height, 16);
            const Run_result result =
                process(directory, {"--sensor", "color", "--color-order", order, "--phase",
                                    std::to_string(45 * phase), "--origin", origin_text(x, y), "--bit-depth", "12",
                                    "--outputs", every_color_output, stem + ".png"});
            ASSERT_EQ(result.exit_status, 0) << result.err;
            expect_color_outputs_match_model(directory.path(), stem, frame, geometry, 12, 65535, "png");
            phase = (phase + 1) % 4;
        }
}

TEST(ColorSensor, PngAndTiffInAndOutHoldTheSameSamples)
{
    Temporary_directory directory;
    const std::int32_t width = 66, height = 46;
    const Mosaic_geometry geometry{width, height, 2, 2, 2, "grbg"};
    const color_test::Scene scene = [](double x, double y, int channel) {
        return color_test::Light{500.0 + 40 * x + 300 * channel, 0.2 + 0.01 * y, -80 + 3 * x};
    };
    const auto frame = color_test::render_mosaic(geometry, scene, 12, 15.0, 4);
    write_png(directory / "scene.png", frame, width, height, 16);
    write_tiff(directory / "scene.tif", frame, width, height, 16);
    const std::vector<std::string> common{"--sensor", "color", "--color-order", "grbg", "--phase", "90",
                                          "--origin", "2,2", "--bit-depth", "12", "--output-maximum", "50000",
                                          "--outputs", every_color_output};
    for (const auto& [input, format, out] : {std::tuple{"scene.png", "png", "png_png"}, {"scene.png", "tiff", "png_tiff"},
                                             {"scene.tif", "png", "tiff_png"}, {"scene.tif", "tiff", "tiff_tiff"}}) {
        auto arguments = common;
        arguments.insert(arguments.end(), {"--format", format, "-o", out, input});
        const Run_result result = process(directory, arguments);
        ASSERT_EQ(result.exit_status, 0) << result.err;
    }
    expect_color_outputs_match_model(directory / "png_png", "scene", frame, geometry, 12, 50000, "png");
    std::size_t compared = 0;
    for (const std::string& name : file_names(directory / "png_png")) {
        const std::filesystem::path png = directory / "png_png" / name;
        const std::string tiff_name = png.stem().string() + ".tiff";
        const Image reference = read_png(png);
        EXPECT_EQ(read_png(directory / "tiff_png" / name).samples, reference.samples) << name;
        EXPECT_EQ(read_tiff(directory / "png_tiff" / tiff_name).samples, reference.samples) << name;
        EXPECT_EQ(read_tiff(directory / "tiff_tiff" / tiff_name).samples, reference.samples) << name;
        ++compared;
    }
    EXPECT_EQ(compared, 11u);
}

TEST(ColorSensor, DefaultOutputsAndPicturesAtHalfResolution)
{
    Temporary_directory directory;
    const std::int32_t width = 42, height = 30;
    const auto frame = random_mosaic(width, height, 12, 77);
    write_png(directory / "frame.png", frame, width, height, 16);
    const Run_result result = process(directory, {"--sensor", "color", "--phase", "0", "--bit-depth", "12",
                                                  "--outputs", "aolp,dolp,aolp_color,dolp_color", "-o", "pictures",
                                                  "frame.png"});
    ASSERT_EQ(result.exit_status, 0) << result.err;
    const Run_result defaults =
        process(directory, {"--sensor", "color", "--phase", "0", "--bit-depth", "12", "-o", "defaults", "frame.png"});
    ASSERT_EQ(defaults.exit_status, 0) << defaults.err;
    EXPECT_EQ(file_names(directory / "defaults"),
              (std::vector<std::string>{"frame_aolp.png", "frame_aolp_color.png", "frame_dolp.png",
                                        "frame_s0_color.png"}));
    const Image aolp = read_png(directory / "pictures" / "frame_aolp.png");
    const Image dolp = read_png(directory / "pictures" / "frame_dolp.png");
    const Image angle_picture = read_png(directory / "pictures" / "frame_aolp_color.png");
    const Image degree_picture = read_png(directory / "pictures" / "frame_dolp_color.png");
    for (const Image* picture : {&angle_picture, &degree_picture}) {
        EXPECT_EQ(picture->width, 20);
        EXPECT_EQ(picture->height, 14);
        EXPECT_EQ(picture->channels, 3);
        EXPECT_EQ(picture->depth, 8);
    }
    // The angle picture is the documented function of the two images.
    for (std::size_t i = 0; i < aolp.samples.size(); ++i) {
        const double h = std::min(aolp.samples[i] / 65535.0, 1.0), v = std::min(dolp.samples[i] / 65535.0, 1.0);
        const double sector_start = std::floor(6 * h), f = 6 * h - sector_start;
        const double rgb[6][3] = {{v, v * f, 0}, {v * (1 - f), v, 0}, {0, v, v * f},
                                  {0, v * (1 - f), v}, {v * f, 0, v}, {v, 0, v * (1 - f)}};
        const int sector = static_cast<int>(sector_start) % 6;
        for (int channel = 0; channel < 3; ++channel)
            ASSERT_EQ(angle_picture.samples[3 * i + channel], std::floor(255 * rgb[sector][channel] + 0.5)) << i;
    }
}

TEST(GlareImages, MonoIminAndImaxAreTheIntegerFormulaOverTheLibrarysS0AndDolp)
{
    Temporary_directory directory;
    const std::int32_t width = 53, height = 40;
    const auto frame = random_mosaic(width, height, 12, 91);
    write_png(directory / "frame.png", frame, width, height, 16);
    for (int maximum : {65535, 4095, 1000}) {
        SCOPED_TRACE("output maximum " + std::to_string(maximum));
        const std::string out = "m" + std::to_string(maximum);
        const Run_result result =
            process(directory, {"--phase", "135", "--origin", "1,0", "--bit-depth", "12", "--output-maximum",
                                std::to_string(maximum), "--outputs", "imin,imax", "-o", out, "frame.png"});
        ASSERT_EQ(result.exit_status, 0) << result.err;
        EXPECT_EQ(file_names(directory / out), (std::vector<std::string>{"frame_imax.png", "frame_imin.png"}));
        const auto library =
            library_transform(frame, width, height, {3, 1, 0, 12, static_cast<std::uint16_t>(maximum)});
        const auto imin = read_png(directory / out / "frame_imin.png").samples;
        const auto imax = read_png(directory / out / "frame_imax.png").samples;
        ASSERT_EQ(imin.size(), frame.size());
        std::size_t polarized = 0;
        for (std::size_t i = 0; i < frame.size(); ++i) {
            const std::uint16_t s0 = library.images[0][i], dolp = library.images[4][i];
            ASSERT_EQ(imin[i], color_test::expected_imin(s0, dolp, maximum)) << i;
            ASSERT_EQ(imax[i], color_test::expected_imax(s0, dolp, maximum)) << i;
            polarized += imin[i] < imax[i];
        }
        EXPECT_GT(polarized, frame.size() / 2);
    }
}

TEST(ColorSensorBadInput, FrameSmallerThanASuperPixelIsOneLineAndNoFile)
{
    Temporary_directory directory;
    write_png(directory / "narrow.png", random_mosaic(3, 8, 12, 1), 3, 8, 16);
    write_png(directory / "good.png", random_mosaic(8, 8, 12, 2), 8, 8, 16);
    const Run_result result = process(directory, {"--sensor", "color", "--phase", "0", "-o", "out", "-j", "1",
                                                  "narrow.png", "good.png"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "ksi-polarization: narrow.png: 3x8 is smaller than one colour super-pixel (4x4)\n");
    for (const std::string& name : file_names(directory / "out"))
        EXPECT_EQ(name.rfind("good_", 0), 0u) << name;
    EXPECT_EQ(file_names(directory / "out").size(), 4u);
}

TEST(ColorSensorBadInput, UsageErrorsWriteNothing)
{
    Temporary_directory directory;
    write_png(directory / "frame.png", random_mosaic(8, 8, 12, 3), 8, 8, 16);
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--sensor", "color", "--color-order", "rgbg"}, "--color-order: rgbg not in {rggb,bggr,grbg,gbrg}"},
        {{"--sensor", "colour"}, "--sensor: colour not in {mono,color}"},
        {{"--sensor", "color", "--origin", "1,2"}, "--origin: 1,2 starts inside a polarizer quartet"},
        {{"--sensor", "color", "--outputs", "s0,aolp"}, "--outputs: s0 is not an output of --sensor color"},
        {{"--outputs", "s0_color"}, "--outputs: s0_color is not an output of --sensor mono"},
    };
    for (const auto& [options, message] : cases) {
        SCOPED_TRACE(message);
        std::vector<std::string> arguments{"--phase", "0", "-o", "out"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back("frame.png");
        const Run_result result = process(directory, arguments);
        EXPECT_EQ(result.exit_status, 2);
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(directory / "out"));
    }
}

TEST(ColorDemo, WritesTheColourSceneAndOutputsThatProcessReproduces)
{
    Temporary_directory directory;
    const Run_result demo = run_tool({"demo", "--sensor", "color", "-o", "demo"}, directory.path());
    ASSERT_EQ(demo.exit_status, 0) << demo.err;
    EXPECT_NE(demo.out.find("612x512 outputs"), std::string::npos) << demo.out;
    const auto names = file_names(directory / "demo");
    EXPECT_EQ(names.size(), 14u);
    const Image s0_color = read_png(directory / "demo" / "demo_color_scene_s0_color.png");
    EXPECT_EQ(s0_color.width, 612);
    EXPECT_EQ(s0_color.height, 512);
    EXPECT_EQ(s0_color.channels, 3);
    const Run_result again = process(directory, {"--sensor", "color", "--phase", "0", "--outputs", every_color_output +
                                                 ",aolp_color,dolp_color", "-o", "again", "demo/demo_color_scene.png"});
    ASSERT_EQ(again.exit_status, 0) << again.err;
    for (const std::string& name : file_names(directory / "again"))
        EXPECT_EQ(read_png(directory / "again" / name).samples, read_png(directory / "demo" / name).samples) << name;
    EXPECT_EQ(file_names(directory / "again").size(), 13u);
}

}  // namespace
}  // namespace cli_test
