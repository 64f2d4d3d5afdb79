// Each kind of bad input, in a batch beside a good file: exit status 1, one
// line on stderr that names the file and the reason, nothing written for the
// bad file, and the good file's outputs complete and correct.
#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>
#include <zlib.h>

#include "cli_test_support.h"

namespace cli_test {
namespace {

// A little-endian TIFF of `samples` (8x8, 16-bit) whose directory is then
// changed to claim `claimed_width` x `claimed_height`.
std::vector<std::uint8_t> tiff_claiming(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples,
                                        std::uint32_t claimed_width, std::uint32_t claimed_height,
                                        std::uint16_t compression)
{
    TIFF* tiff = TIFFOpen(file.c_str(), "wl");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 8u);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 8u);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t{1});
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, std::uint16_t{16});
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 8u);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, compression);
    TIFFWriteEncodedStrip(tiff, 0, const_cast<std::uint16_t*>(samples.data()), 8 * 8 * 2);
    TIFFClose(tiff);

    std::vector<std::uint8_t> bytes = file_bytes(file);
    const auto read = [&bytes](std::size_t at, int size) {
        std::uint32_t value = 0;
        for (int i = size - 1; i >= 0; --i)
            value = value << 8 | bytes.at(at + i);
        return value;
    };
    const auto write = [&bytes](std::size_t at, std::uint32_t value, int size) {
        for (int i = 0; i < size; ++i)
            bytes.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
    };
    const std::size_t directory = read(4, 4);
    for (std::size_t entry = directory + 2; entry < directory + 2 + 12 * read(directory, 2); entry += 12) {
        const std::uint32_t tag = read(entry, 2);
        if (tag == TIFFTAG_IMAGEWIDTH || tag == TIFFTAG_IMAGELENGTH) {
            write(entry + 2, TIFF_LONG, 2);
            write(entry + 8, tag == TIFFTAG_IMAGEWIDTH ? claimed_width : claimed_height, 4);
        }
    }
    return bytes;
}

// A PNG whose header claims `width` x `height` 16-bit grey samples, with the
// compressed data of one row.
std::vector<std::uint8_t> png_header_alone(std::uint32_t width, std::uint32_t height)
{
    std::vector<std::uint8_t> bytes{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    const auto append_big_endian = [&bytes](std::uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    };
    const auto append_chunk = [&](const char* type, std::vector<std::uint8_t> data) {
        append_big_endian(static_cast<std::uint32_t>(data.size()));
        std::vector<std::uint8_t> checked(type, type + 4);
        checked.insert(checked.end(), data.begin(), data.end());
        bytes.insert(bytes.end(), checked.begin(), checked.end());
        append_big_endian(static_cast<std::uint32_t>(crc32(0, checked.data(), static_cast<uInt>(checked.size()))));
    };
    std::vector<std::uint8_t> header;
    for (std::uint32_t value : {width, height})
        for (int shift = 24; shift >= 0; shift -= 8)
            header.push_back(static_cast<std::uint8_t>(value >> shift));
    header.insert(header.end(), {16, 0, 0, 0, 0});  // 16-bit grey, deflate, no filter, no interlace
    append_chunk("IHDR", header);
    const std::vector<std::uint8_t> row(1 + 2 * static_cast<std::size_t>(width), 0);  // filter byte, samples
    std::vector<std::uint8_t> compressed(compressBound(static_cast<uLong>(row.size())));
    uLongf compressed_size = static_cast<uLongf>(compressed.size());
    compress(compressed.data(), &compressed_size, row.data(), static_cast<uLong>(row.size()));
    compressed.resize(compressed_size);
    append_chunk("IDAT", compressed);
    append_chunk("IEND", {});
    return bytes;
}

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

// Headers claiming frames far larger than the file could hold (60000x60000
// pixels, under the tool's limit of 2^32) are refused before the frame is
// allocated.
TEST_F(BadInput, StoredTiffClaimingMoreThanTheFileHolds)
{
    const std::vector<std::uint8_t> bytes =
        tiff_claiming(directory / "whole.tif", random_mosaic(8, 8, 16, 31), 60000, 60000, COMPRESSION_NONE);
    write_bytes(directory / "claims.tif", bytes);
    expect_refused("claims.tif", "truncated or corrupt TIFF (60000x60000 16-bit samples need more than the "
                                 "file's " + std::to_string(bytes.size()) + " bytes)");
}

TEST_F(BadInput, CompressedTiffClaimingMoreThanTheFileHolds)
{
    const std::vector<std::uint8_t> bytes =
        tiff_claiming(directory / "whole.tif", random_mosaic(8, 8, 16, 32), 60000, 60000, COMPRESSION_ADOBE_DEFLATE);
    write_bytes(directory / "claims.tif", bytes);
    expect_refused("claims.tif", "truncated or corrupt TIFF (60000x60000 16-bit samples cannot be decompressed "
                                 "from a file of " + std::to_string(bytes.size()) + " bytes)");
}

TEST_F(BadInput, PngClaimingMoreThanTheFileHolds)
{
    const std::vector<std::uint8_t> bytes = png_header_alone(60000, 60000);
    write_bytes(directory / "claims.png", bytes);
    expect_refused("claims.png", "truncated or corrupt PNG (60000x60000 16-bit samples cannot be decompressed "
                                 "from a file of " + std::to_string(bytes.size()) + " bytes)");
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
