// Every input format, read by the tool and transformed: each output file
// equals the library's own transform of the same samples.
#include <gtest/gtest.h>

#include "cli_test_support.h"

namespace cli_test {
namespace {

constexpr std::int32_t width = 70, height = 51;

class InputFormats : public ::testing::Test {
protected:
    // Runs `process` on `input` with the six images and extra arguments,
    // expects success and the outputs of the library for `frame`.
    void expect_process_matches(const std::string& input, const std::vector<std::uint16_t>& frame,
                                const Transform_arguments& arguments, std::vector<std::string> extra = {},
                                const std::string& extension = "png")
    {
        static const char* const phases[4] = {"0", "45", "90", "135"};
        std::vector<std::string> command{"process", "--phase", phases[arguments.phase], "--outputs", all_images,
                                         "-o", "out"};
        command.insert(command.end(), extra.begin(), extra.end());
        command.push_back(input);
        const Run_result result = run_tool(command, directory.path());
        ASSERT_EQ(result.exit_status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out.rfind("1 of 1 frames done (0 failed)", 0), 0u) << result.out;
        const std::string stem = std::filesystem::path(input).stem().string();
        expect_images_equal_library(directory / "out", stem, frame, width, height, arguments, extension);
    }

    Temporary_directory directory;
};

TEST_F(InputFormats, EightBitPngHasBitDepthEight)
{
    const auto frame = random_mosaic(width, height, 8, 1);
    write_png(directory / "eight.png", frame, width, height, 8);
    expect_process_matches("eight.png", frame, {1, 0, 0, 8});
}

TEST_F(InputFormats, SixteenBitPngWithSbitTwelveIsShiftedBack)
{
    const auto frame = random_mosaic(width, height, 12, 2);
    std::vector<std::uint16_t> stored(frame);
    for (std::uint16_t& sample : stored)
        sample = static_cast<std::uint16_t>(sample << 4);
    write_png(directory / "twelve.png", stored, width, height, 16, 1, 12);
    ASSERT_EQ(read_png(directory / "twelve.png").significant_bits, 12);
    expect_process_matches("twelve.png", frame, {2, 0, 0, 12});
}

TEST_F(InputFormats, SixteenBitPngWithoutSbitHasBitDepthSixteen)
{
    const auto frame = random_mosaic(width, height, 16, 3);
    write_png(directory / "sixteen.png", frame, width, height, 16);
    expect_process_matches("sixteen.png", frame, {3, 0, 0, 16});
}

TEST_F(InputFormats, SixteenBitTiffInStripsWithBitDepthOverride)
{
    const auto frame = random_mosaic(width, height, 12, 4);
    write_tiff(directory / "strips.tif", frame, width, height, 16);
    expect_process_matches("strips.tif", frame, {0, 0, 0, 12}, {"--bit-depth", "12"});
}

TEST_F(InputFormats, SixteenBitTiffInTiles)
{
    const auto frame = random_mosaic(width, height, 16, 5);
    write_tiff(directory / "tiles.tiff", frame, width, height, 16, 1, 16);
    expect_process_matches("tiles.tiff", frame, {1, 0, 0, 16});
}

TEST_F(InputFormats, EightBitTiffInStripsAndTiles)
{
    const auto frame = random_mosaic(width, height, 8, 6);
    write_tiff(directory / "strips8.tif", frame, width, height, 8);
    expect_process_matches("strips8.tif", frame, {2, 0, 0, 8});
    write_tiff(directory / "tiles8.tif", frame, width, height, 8, 1, 32);
    expect_process_matches("tiles8.tif", frame, {2, 0, 0, 8});
}

TEST_F(InputFormats, SixteenBitPgmTakesItsDepthFromTheMaximum)
{
    const auto frame = random_mosaic(width, height, 12, 7);
    write_pgm(directory / "sixteen.pgm", frame, width, height, 4095);
    expect_process_matches("sixteen.pgm", frame, {3, 0, 0, 12});
}

TEST_F(InputFormats, EightBitPgm)
{
    const auto frame = random_mosaic(width, height, 8, 8);
    write_pgm(directory / "eight.pgm", frame, width, height, 255);
    expect_process_matches("eight.pgm", frame, {0, 0, 0, 8});
}

TEST_F(InputFormats, RawDumpsInEachSampleFormat)
{
    const auto frame = random_mosaic(width, height, 12, 9);
    std::vector<std::uint8_t> little, big, bytes;
    for (std::uint16_t sample : frame) {
        little.insert(little.end(), {static_cast<std::uint8_t>(sample), static_cast<std::uint8_t>(sample >> 8)});
        big.insert(big.end(), {static_cast<std::uint8_t>(sample >> 8), static_cast<std::uint8_t>(sample)});
    }
    write_bytes(directory / "little.raw", little);
    write_bytes(directory / "big.raw", big);
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    expect_process_matches("little.raw", frame, {1, 0, 0, 16}, {"--raw", size});
    expect_process_matches("big.raw", frame, {1, 0, 0, 12}, {"--raw", size, "--raw-format", "u16be", "--bit-depth", "12"});

    const auto frame8 = random_mosaic(width, height, 8, 10);
    for (std::uint16_t sample : frame8)
        bytes.push_back(static_cast<std::uint8_t>(sample));
    write_bytes(directory / "eight.raw", bytes);
    expect_process_matches("eight.raw", frame8, {2, 0, 0, 8}, {"--raw", size, "--raw-format", "u8"});
}

TEST_F(InputFormats, TiffOutputsAndOutputMaximum)
{
    const auto frame = random_mosaic(width, height, 12, 11);
    write_png(directory / "frame.png", frame, width, height, 16);
    expect_process_matches("frame.png", frame, {0, 0, 0, 12, 4095},
                           {"--format", "tiff", "--bit-depth", "12", "--output-maximum", "4095"}, "tiff");
}

TEST_F(InputFormats, DirectoryStandsForItsImageFiles)
{
    std::filesystem::create_directory(directory / "in");
    const auto first = random_mosaic(width, height, 8, 12), second = random_mosaic(width, height, 8, 13);
    write_png(directory / "in" / "a.png", first, width, height, 8);
    write_pgm(directory / "in" / "b.pgm", second, width, height, 255);
    write_bytes(directory / "in" / "notes.txt", {'h', 'i'});
    const Run_result result =
        run_tool({"process", "--phase", "0", "--outputs", all_images, "-o", "out", "in"}, directory.path());
    ASSERT_EQ(result.exit_status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("2 of 2 frames done (0 failed)", 0), 0u) << result.out;
    expect_images_equal_library(directory / "out", "a", first, width, height, {0, 0, 0, 8});
    expect_images_equal_library(directory / "out", "b", second, width, height, {0, 0, 0, 8});
    EXPECT_EQ(file_names(directory / "out").size(), 12u);
}

TEST_F(InputFormats, DefaultOutputsAreS0AolpDolpAndTheAnglePicture)
{
    const auto frame = random_mosaic(width, height, 8, 14);
    write_png(directory / "frame.png", frame, width, height, 8);
    const Run_result result = run_tool({"process", "--phase", "0", "frame.png"}, directory.path());
    ASSERT_EQ(result.exit_status, 0) << result.err;
    const std::vector<std::string> expected{"frame.png", "frame_aolp.png", "frame_aolp_color.png", "frame_dolp.png",
                                            "frame_s0.png"};
    EXPECT_EQ(file_names(directory.path()), expected);
}

}  // namespace
}  // namespace cli_test
