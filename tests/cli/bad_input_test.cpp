// Each kind of bad input, in a batch beside a good file: exit status 1, one
// line on stderr that names the file and the reason, nothing written for the
// bad file, and the good file's outputs complete and correct.
#include <gtest/gtest.h>
#include <unistd.h>

#include "cli_test_support.h"

namespace cli_test {
namespace {

constexpr std::int32_t width = 20, height = 10;
const char* const every_output = "normalized,s0,s1,s2,aolp,dolp,aolp_color,dolp_color";

class BadInput : public ::testing::Test {
protected:
    void SetUp() override
    {
        good = random_mosaic(width, height, 8, 21);
        write_png(directory / "good.png", good, width, height, 8);
    }

    // Runs good.png and `bad` (as named on the command line) in one batch.
    void expect_refused(const std::string& bad, const std::string& reason, std::vector<std::string> extra = {},
                        const std::string& good_input = "good.png")
    {
        std::vector<std::string> command{"process", "--phase", "0", "--outputs", every_output, "-o", "out"};
        command.insert(command.end(), extra.begin(), extra.end());
        command.insert(command.end(), {good_input, bad});
        const Run_result result = run_tool(command, directory.path());
        EXPECT_EQ(result.exit_status, 1);
        const std::string expected_start = "ksi-polarization: " + bad + ": ";
        EXPECT_EQ(result.err.rfind(expected_start, 0), 0u) << result.err;
        EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.err.back(), '\n');
        EXPECT_EQ(result.out.rfind("1 of 2 frames done (1 failed)", 0), 0u) << result.out;

        // The good file's eight outputs and nothing else: no file of the bad
        // input, no temporary.
        const std::string good_stem = std::filesystem::path(good_input).stem().string();
        const std::vector<std::string> expected{
            good_stem + "_aolp.png", good_stem + "_aolp_color.png", good_stem + "_dolp.png",
            good_stem + "_dolp_color.png", good_stem + "_normalized.tiff", good_stem + "_s0.png",
            good_stem + "_s1.png", good_stem + "_s2.png"};
        EXPECT_EQ(file_names(directory / "out"), expected);
        expect_images_equal_library(directory / "out", good_stem, good, width, height,
                                    {0, 0, 0, good_input == "good.png" ? 8u : 16u});
    }

    std::vector<std::uint8_t> good_png_cut_to(double fraction)
    {
        std::vector<std::uint8_t> bytes = file_bytes(directory / "good.png");
        bytes.resize(static_cast<std::size_t>(bytes.size() * fraction));
        return bytes;
    }

    Temporary_directory directory;
    std::vector<std::uint16_t> good;
};

TEST_F(BadInput, MissingFile) { expect_refused("absent.png", "missing"); }

TEST_F(BadInput, UnreadableFile)
{
    if (geteuid() == 0) {
        // Permissions do not stop the superuser; a path through a file does.
        expect_refused("good.png/inside.png", "unreadable (Not a directory)");
        return;
    }
    write_png(directory / "locked.png", good, width, height, 8);
    std::filesystem::permissions(directory / "locked.png", std::filesystem::perms::none);
    expect_refused("locked.png", "unreadable (Permission denied)");
}

TEST_F(BadInput, NotAnImage)
{
    write_bytes(directory / "text.png", {'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e', '\n'});
    expect_refused("text.png", "not an image");
}

TEST_F(BadInput, ColourPng)
{
    write_png(directory / "colour.png", random_mosaic(3 * width, height, 8, 22), width, height, 8, 3);
    expect_refused("colour.png", "colour or multi-sample image (PNG colour type 2");
}

TEST_F(BadInput, GreyWithAlphaPng)
{
    write_png(directory / "alpha.png", random_mosaic(2 * width, height, 8, 23), width, height, 8, 2);
    expect_refused("alpha.png", "colour or multi-sample image (PNG colour type 4");
}

TEST_F(BadInput, ColourTiff)
{
    write_tiff(directory / "colour.tif", random_mosaic(3 * width, height, 8, 24), width, height, 8, 3);
    expect_refused("colour.tif", "colour or multi-sample image (TIFF with 3 samples per pixel");
}

TEST_F(BadInput, UnsupportedPngDepth)
{
    write_png(directory / "four.png", random_mosaic(width, height, 4, 25), width, height, 4);
    expect_refused("four.png", "unsupported depth: 4-bit samples");
}

TEST_F(BadInput, UnsupportedTiffDepth)
{
    write_tiff(directory / "wide.tif", random_mosaic(width, height, 16, 26), width, height, 32);
    expect_refused("wide.tif", "unsupported depth: 32-bit samples");
}

TEST_F(BadInput, TruncatedPng)
{
    write_bytes(directory / "cut.png", good_png_cut_to(0.6));
    expect_refused("cut.png", "truncated or corrupt PNG (libpng:");
}

TEST_F(BadInput, CorruptPng)
{
    std::vector<std::uint8_t> bytes = file_bytes(directory / "good.png");
    for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 8; ++i)
        bytes[i] ^= 0x5A;
    write_bytes(directory / "corrupt.png", bytes);
    expect_refused("corrupt.png", "truncated or corrupt PNG (libpng:");
}

TEST_F(BadInput, TruncatedTiff)
{
    write_tiff(directory / "whole.tif", random_mosaic(width, height, 16, 27), width, height, 16);
    std::vector<std::uint8_t> bytes = file_bytes(directory / "whole.tif");
    bytes.resize(bytes.size() / 2);
    write_bytes(directory / "cut.tif", bytes);
    expect_refused("cut.tif", "truncated or corrupt TIFF");
}

TEST_F(BadInput, TruncatedPgm)
{
    write_pgm(directory / "whole.pgm", random_mosaic(width, height, 12, 28), width, height, 4095);
    std::vector<std::uint8_t> bytes = file_bytes(directory / "whole.pgm");
    bytes.resize(bytes.size() - 3);
    write_bytes(directory / "cut.pgm", bytes);
    expect_refused("cut.pgm", "truncated PGM: needs 400 bytes of samples, has 397");
}

// A header that promises far more samples than the file holds is refused
// before any frame of that size exists.
TEST_F(BadInput, PgmHeaderLargerThanTheFile)
{
    const std::string header = "P5  65535652 5 53578\n";
    std::vector<std::uint8_t> bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), {0xCA, 0x84, 0x00, 0x01});
    write_bytes(directory / "huge.pgm", bytes);
    expect_refused("huge.pgm", "truncated PGM: needs 655356520 bytes of samples, has 4");
}

TEST_F(BadInput, RawSizeDoesNotMatchTheFile)
{
    std::vector<std::uint8_t> samples;
    for (std::uint16_t sample : good)
        samples.insert(samples.end(), {static_cast<std::uint8_t>(sample), static_cast<std::uint8_t>(sample >> 8)});
    write_bytes(directory / "good.raw", samples);
    samples.resize(samples.size() - 2);
    write_bytes(directory / "short.raw", samples);
    expect_refused("short.raw", "raw size does not match: 20x10 u16 needs 400 bytes, the file has 398",
                   {"--raw", "20x10"}, "good.raw");
}

TEST_F(BadInput, TooNarrowForTheLibrary)
{
    write_png(directory / "narrow.png", random_mosaic(1, height, 8, 29), 1, height, 8);
    expect_refused("narrow.png", "too small for the library (kl_polarization_processor_transform: "
                                 "status_invalid_width (11): width is 1 or less)");
}

TEST_F(BadInput, TooLowForTheLibrary)
{
    write_png(directory / "low.png", random_mosaic(width, 1, 8, 30), width, 1, 8);
    expect_refused("low.png", "status_invalid_height (12): height is 1 or less");
}

}  // namespace
}  // namespace cli_test
