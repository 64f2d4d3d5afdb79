// Checks of the reference model itself against facts that are stated
// independently of it: constants, tables and worked values. If the model
// drifts, these fail before any comparison with the library is trusted.
#include "core_coverage_support.h"

namespace core_test {
namespace {

using namespace ksi_reference;

TEST(ReferenceModel, AngleScaleBitsGiveExactly90And45)
{
    const float pi = float_from_bits(0x40490FDBu);
    const float half_pi = float_from_bits(0x3FC90FDBu);
    EXPECT_EQ(bits_of(angle_scale()), 0x41E52EE0u);
    EXPECT_EQ(pi * angle_scale(), 90.0f);
    EXPECT_EQ(half_pi * angle_scale(), 45.0f);
}

TEST(ReferenceModel, FastArctangentOfOneIsAbout0_7804462)
{
    EXPECT_NEAR(fast_arctangent(1.0f), 0.7804462f, 1e-7f);
    EXPECT_EQ(fast_arctangent(0.0f), 0.0f);
    EXPECT_EQ(fast_arctangent(-1.0f), -fast_arctangent(1.0f));
}

TEST(ReferenceModel, ReciprocalEstimateIsWithinItsBound)
{
    for (float x : {1.0f, 2.0f, 3.0f, 100.0f, -7.5f, 65535.0f}) {
        const float r = reciprocal_estimate(x);
        EXPECT_LE(std::abs(r * x - 1.0f), 1.5f / 4096.0f) << x;
    }
    EXPECT_EQ(reciprocal_estimate(0.0f), std::numeric_limits<float>::infinity());
    EXPECT_EQ(reciprocal_estimate(-0.0f), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(reciprocal_estimate(float_from_bits(0x00000100u)), std::numeric_limits<float>::infinity());
}

TEST(ReferenceModel, ClampAndRound)
{
    EXPECT_EQ(clamp_and_round(2.5f, 65535), 2);
    EXPECT_EQ(clamp_and_round(3.5f, 65535), 4);
    EXPECT_EQ(clamp_and_round(-1.0f, 65535), 0);
    EXPECT_EQ(clamp_and_round(70000.0f, 65535), 65535);
    EXPECT_EQ(clamp_and_round(std::numeric_limits<float>::quiet_NaN(), 4095), 4095);
    EXPECT_EQ(clamp_and_round(std::numeric_limits<float>::infinity(), 4095), 4095);
    EXPECT_EQ(clamp_and_round(-std::numeric_limits<float>::infinity(), 4095), 0);
    EXPECT_EQ(clamp_and_round(32767.5f, 65535), 32768);
    EXPECT_EQ(clamp_and_round(2047.5f, 4095), 2048);
}

TEST(ReferenceModel, AzimuthDecisionTable)
{
    EXPECT_EQ(azimuth_element(0, 0, 65535), 32768);
    EXPECT_EQ(azimuth_element(0, 5, 65535), 49151);
    EXPECT_EQ(azimuth_element(0, -5, 65535), 16384);
    EXPECT_EQ(azimuth_element(5, 0, 65535), 32768);
    EXPECT_EQ(azimuth_element(-5, 0, 65535), 65535);
    EXPECT_EQ(azimuth_element(-5, -0.0f, 65535), 65535);
    EXPECT_EQ(azimuth_element(0, 5, 4095), 3071);
    EXPECT_EQ(azimuth_element(0, -5, 4095), 1024);
    EXPECT_EQ(azimuth_element(0, 0, 4095), 2048);
    // An S1 of 0 and a NaN S2: the S1 = 0 column, S2 not positive.
    EXPECT_EQ(azimuth_element(0, std::numeric_limits<float>::quiet_NaN(), 65535), 16384);
    EXPECT_EQ(azimuth_element(std::numeric_limits<float>::quiet_NaN(), 1, 65535), 65535);
}

TEST(ReferenceModel, PhaseSetsAreTheMosaicReadAsMatrices)
{
    // Even/even, even/odd, odd/even, odd/odd polarizer of each phase's set.
    const int sets[4][4] = {{0, 3, 1, 2}, {1, 2, 0, 3}, {2, 1, 3, 0}, {3, 0, 2, 1}};
    for (int phase = 0; phase < 4; ++phase)
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(polarizer_of_position(phase, k), sets[phase][k]) << "phase " << phase << " position " << k;
    for (std::int32_t phase : {-1, 4, 100, std::numeric_limits<std::int32_t>::min()})
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(polarizer_of_position(phase, k), sets[0][k]);
}

TEST(ReferenceModel, RebasingTable)
{
    EXPECT_EQ(rebase_phase(1, 3, 2), 2);
    EXPECT_EQ(rebase_phase(1, -3, 2), 3);
    EXPECT_EQ(rebase_phase(0, 1, 0), 3);
    EXPECT_EQ(rebase_phase(0, 0, 1), 1);
    EXPECT_EQ(rebase_phase(0, -1, 0), 2);
    EXPECT_EQ(rebase_phase(0, 0, -1), 2);
    EXPECT_EQ(rebase_phase(-1, 0, 0), -1);
    EXPECT_EQ(rebase_phase(-1, 1, 0), 3);
}

TEST(ReferenceModel, TinyFrameTables)
{
    EXPECT_EQ(reference_rule_map(2, 2), rule_map_from_text({"0RD 1LD", "2RU 3LU"}));
    EXPECT_EQ(reference_rule_map(2, 3), rule_map_from_text({"0RD 1RD 0LD", "2RU 3RU 0LU"}));
    EXPECT_EQ(reference_rule_map(3, 2), rule_map_from_text({"0RD 1LD", "2RD 3LD", "0RU 0LU"}));
    EXPECT_EQ(reference_rule_map(3, 3), rule_map_from_text({"0RD 1RD 0LD", "2RD 3RD 2LD", "0RU 1RU 0LU"}));
}

TEST(ReferenceModel, BlockColumnsByWidth)
{
    // columns -> first column not written by a block, on a row pair.
    const unsigned table[][2] = {{2, 0},  {3, 0},  {4, 0},  {5, 0},  {6, 0},  {7, 0},  {8, 4},
                                 {9, 4},  {10, 4}, {11, 4}, {12, 8}, {15, 8}, {16, 12}, {640, 636}};
    for (const auto& row : table) {
        unsigned block_end = 0;
        while (block_end < row[0] && is_block_pixel(6, row[0], 0, block_end))
            ++block_end;
        EXPECT_EQ(block_end, row[1]) << "columns " << row[0];
        EXPECT_FALSE(is_block_pixel(6, row[0], 4, 0)) << "last rows have no block";
        EXPECT_FALSE(is_block_pixel(2, row[0], 0, 0)) << "two-row frames have no block";
    }
}

TEST(ReferenceModel, WorkedPixel)
{
    // matrix_0 defaults on quartet 10, 20, 30, 40: S0 = 50, S1 = 10 - 40,
    // S2 = -20 + 30.
    const std::uint16_t quartet[4] = {10, 20, 30, 40};
    const Pixel_outputs p = evaluate_pixel(default_matrix(0), quartet, 16, 65535);
    EXPECT_EQ(p.s0, 50.0f);
    EXPECT_EQ(p.s1, -30.0f);
    EXPECT_EQ(p.s2, 10.0f);
    EXPECT_EQ(p.normalized[0], -0.6f);
    EXPECT_EQ(p.normalized[1], 0.2f);
    EXPECT_EQ(p.slot[1], 50);
    EXPECT_EQ(p.slot[2], 0);
    EXPECT_EQ(p.slot[3], 10);
    // Rescaled from 12 bits to 8: 255 x 50 / 4095 = 3.11.
    EXPECT_EQ(evaluate_pixel(default_matrix(0), quartet, 12, 255).slot[1], 3);
}

}  // namespace
}  // namespace core_test
