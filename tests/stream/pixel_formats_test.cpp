// Unpacking and packing of each monochrome format, against packers written
// bit by bit from the format's layout and against hand-worked bytes.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "pixel_formats.hpp"
#include "reference_packing.h"

namespace {

using ksi_cli::Pixel_encoding;
using namespace reference_packing;

std::vector<std::uint16_t> random_pixels(std::size_t count, unsigned bits, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<unsigned> value(0, (1u << bits) - 1);
    std::vector<std::uint16_t> pixels(count);
    for (std::uint16_t& pixel : pixels)
        pixel = static_cast<std::uint16_t>(value(generator));
    return pixels;
}

std::vector<std::uint16_t> unpacked(Pixel_encoding encoding, const std::vector<std::uint8_t>& bytes,
                                    std::size_t count)
{
    EXPECT_EQ(ksi_cli::packed_size(encoding, count), bytes.size());
    std::vector<std::uint16_t> pixels(count, 0xdead);
    ksi_cli::unpack(encoding, bytes.data(), count, pixels.data());
    return pixels;
}

TEST(PixelUnpacking, Mono12PackedHandWorked)
{
    // 0xABC, 0x123: AB, then 3 (second's low nibble) over C (first's), then 12.
    EXPECT_EQ(unpacked(Pixel_encoding::mono12_packed, {0xAB, 0x3C, 0x12}, 2),
              (std::vector<std::uint16_t>{0xABC, 0x123}));
}

TEST(PixelUnpacking, Mono12pHandWorked)
{
    // 0xABC, 0x123: BC, then 3 (second's low nibble) over A (first's high), then 12.
    EXPECT_EQ(unpacked(Pixel_encoding::mono12p, {0xBC, 0x3A, 0x12}, 2), (std::vector<std::uint16_t>{0xABC, 0x123}));
}

class PackedFormats : public testing::TestWithParam<std::size_t> {};

TEST_P(PackedFormats, Mono12PackedMatchesBitwisePacker)
{
    const auto pixels = random_pixels(GetParam(), 12, 1);
    EXPECT_EQ(unpacked(Pixel_encoding::mono12_packed, pack_mono12_packed(pixels), pixels.size()), pixels);
}

TEST_P(PackedFormats, Mono12pMatchesBitwisePacker)
{
    const auto pixels = random_pixels(GetParam(), 12, 2);
    EXPECT_EQ(unpacked(Pixel_encoding::mono12p, pack_mono12p(pixels), pixels.size()), pixels);
}

TEST_P(PackedFormats, SixteenBitContainers)
{
    for (auto [encoding, bits] : {std::pair{Pixel_encoding::mono10, 10u}, std::pair{Pixel_encoding::mono12, 12u},
                                  std::pair{Pixel_encoding::mono16, 16u}}) {
        const auto pixels = random_pixels(GetParam(), bits, bits);
        EXPECT_EQ(unpacked(encoding, little_endian_words(pixels), pixels.size()), pixels) << bits << " bits";
    }
}

TEST_P(PackedFormats, Mono8)
{
    const auto pixels = random_pixels(GetParam(), 8, 3);
    const std::vector<std::uint8_t> bytes(pixels.begin(), pixels.end());
    EXPECT_EQ(unpacked(Pixel_encoding::mono8, bytes, pixels.size()), pixels);
}

std::vector<std::uint8_t> packed(Pixel_encoding encoding, const std::vector<std::uint16_t>& pixels)
{
    std::vector<std::uint8_t> bytes(ksi_cli::packed_size(encoding, pixels.size()), 0xa5);
    ksi_cli::pack(encoding, pixels.data(), pixels.size(), bytes.data());
    return bytes;
}

TEST_P(PackedFormats, PackingMatchesBitwisePackers)
{
    const auto twelve_bits = random_pixels(GetParam(), 12, 4);
    EXPECT_EQ(packed(Pixel_encoding::mono12p, twelve_bits), pack_mono12p(twelve_bits));
    EXPECT_EQ(packed(Pixel_encoding::mono12_packed, twelve_bits), pack_mono12_packed(twelve_bits));
    for (auto [encoding, bits] : {std::pair{Pixel_encoding::mono10, 10u}, std::pair{Pixel_encoding::mono12, 12u},
                                  std::pair{Pixel_encoding::mono16, 16u}}) {
        const auto pixels = random_pixels(GetParam(), bits, bits + 1);
        EXPECT_EQ(packed(encoding, pixels), little_endian_words(pixels)) << bits << " bits";
    }
    const auto eight_bits = random_pixels(GetParam(), 8, 5);
    EXPECT_EQ(packed(Pixel_encoding::mono8, eight_bits), std::vector<std::uint8_t>(eight_bits.begin(), eight_bits.end()));
}

// Odd counts end in a half-used triple.
INSTANTIATE_TEST_SUITE_P(Counts, PackedFormats, testing::Values(1, 2, 3, 7, 64, 2448 * 3 + 1));

TEST(PixelFormats, NamesAndCodes)
{
    const auto mono12p = ksi_cli::pixel_format_by_name("Mono12p");
    ASSERT_TRUE(mono12p);
    EXPECT_EQ(mono12p->code, 0x010c0047u);
    EXPECT_EQ(mono12p->bit_depth, 12u);
    const auto mono10 = ksi_cli::pixel_format_by_code(0x01100003u);
    ASSERT_TRUE(mono10);
    EXPECT_STREQ(mono10->name, "Mono10");
    EXPECT_EQ(mono10->bit_depth, 10u);
    EXPECT_FALSE(ksi_cli::pixel_format_by_name("Mono14"));
    EXPECT_FALSE(ksi_cli::pixel_format_by_code(0x010c0004u));  // Mono10Packed
}

TEST(PixelFormats, UnpackedFormatForABitDepth)
{
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(1).name, "Mono8");
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(8).name, "Mono8");
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(9).name, "Mono10");
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(10).name, "Mono10");
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(12).name, "Mono12");
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(13).name, "Mono16");
    EXPECT_STREQ(ksi_cli::unpacked_format_for_depth(16).name, "Mono16");
}

}  // namespace
