// The evaluation of one pixel, through the exported transform: azimuth
// quadrants and zero guards, DoLP, the normalized pair, clamping and rounding,
// rescaling and the input maximum.
//
// Most cases use a flat frame and one matrix for all four polarizers, so that
// every pixel has the same quartet and the matrix rows set S0, S1 and S2
// directly: with all four pixels equal to p, S0 = p x (sum of row 0) / 2,
// S1 = p x (sum of row 1), S2 = p x (sum of row 2).
#include <cfenv>
#include <cmath>
#include <limits>

#include "core_test_support.h"

namespace core_test {
namespace {

constexpr float inf = std::numeric_limits<float>::infinity();

struct Pixel {
    float normalized[2];
    std::uint16_t slot[6];  // index 1 to 5
};

// Runs a flat frame (3 rows x 5 columns: row pairs, odd last column, last
// row; no four-lane block) with `matrix` for every polarizer and checks that
// all pixels agree. Returns the common value.
Pixel flat_frame_pixel(const Processor& processor, const Matrix& matrix, std::uint16_t level,
                       std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    EXPECT_EQ(processor.set(same_matrix_everywhere(matrix)), status_success);
    Frame_case frame;
    frame.rows = 3;
    frame.columns = 5;
    frame.bit_depth = bit_depth;
    frame.output_maximum = output_maximum;
    frame.input.assign(frame.pixels(), level);
    frame.by_polarizer = same_matrix_everywhere(matrix);
    frame.custom = true;
    Output_arena arena(frame.pixels(), all_slots, 0xA5);
    EXPECT_EQ(transform_frame(processor.handle(), frame, arena), status_success);
    EXPECT_TRUE(check_untouched(arena, frame, "flat frame"));
    Pixel first{};
    first.normalized[0] = arena.normalized_at(0);
    first.normalized[1] = arena.normalized_at(1);
    for (int s = 1; s <= 5; ++s)
        first.slot[s] = arena.slot_at(s, 0);
    for (std::size_t i = 1; i < frame.pixels(); ++i) {
        for (int e = 0; e < 2; ++e)
            EXPECT_EQ(ksi_reference::bits_of(arena.normalized_at(2 * i + e)),
                      ksi_reference::bits_of(first.normalized[e]))
                << "pixel " << i << " differs from pixel 0 in slot 0";
        for (int s = 1; s <= 5; ++s)
            EXPECT_EQ(arena.slot_at(s, i), first.slot[s]) << "pixel " << i << " differs from pixel 0 in slot " << s;
    }
    // And the whole frame agrees with the reference.
    EXPECT_EQ(compare_with_reference(frame, arena, reference_outputs(frame), false, "flat frame"), 0u);
    return first;
}

// S0 = s0, S1 = s1, S2 = s2 exactly, from a flat frame of ones.
Matrix stokes_matrix(float s0, float s1, float s2) { return matrix_rows({2.0f * s0, 0, 0, 0}, {s1, 0, 0, 0}, {s2, 0, 0, 0}); }

Pixel stokes_pixel(const Processor& processor, float s0, float s1, float s2, std::uint16_t output_maximum = 65535,
                   std::uint32_t bit_depth = 16)
{
    return flat_frame_pixel(processor, stokes_matrix(s0, s1, s2), 1, bit_depth, output_maximum);
}

// ---------------------------------------------------------------------------
// All zero.

void expect_all_zero_frame(std::uint16_t output_maximum, std::uint16_t expected_azimuth)
{
    Module_session session;
    Processor processor;
    for (unsigned rows : {2u, 3u, 4u, 5u}) {
        for (unsigned columns : {2u, 3u, 6u, 7u, 13u}) {
            Frame_case frame;
            frame.rows = rows;
            frame.columns = columns;
            frame.bit_depth = 12;
            frame.output_maximum = output_maximum;
            frame.input.assign(frame.pixels(), 0);
            Output_arena arena(frame.pixels(), all_slots, 0xA5);
            ASSERT_EQ(transform_frame(processor.handle(), frame, arena), status_success);
            for (unsigned r = 0; r < rows; ++r) {
                for (unsigned c = 0; c < columns; ++c) {
                    if (ksi_reference::is_block_pixel(rows, columns, r, c))
                        continue;
                    const std::size_t i = r * columns + c;
                    EXPECT_TRUE(std::isnan(arena.normalized_at(2 * i))) << frame.describe() << " pixel " << i;
                    EXPECT_TRUE(std::isnan(arena.normalized_at(2 * i + 1))) << frame.describe() << " pixel " << i;
                    EXPECT_EQ(arena.slot_at(1, i), 0) << frame.describe() << " pixel " << i;
                    EXPECT_EQ(arena.slot_at(2, i), 0) << frame.describe() << " pixel " << i;
                    EXPECT_EQ(arena.slot_at(3, i), 0) << frame.describe() << " pixel " << i;
                    EXPECT_EQ(arena.slot_at(4, i), expected_azimuth) << frame.describe() << " pixel " << i;
                    EXPECT_EQ(arena.slot_at(5, i), 0) << frame.describe() << " pixel " << i;
                }
            }
        }
    }
}

TEST(QuartetEdgeCases, AllZeroFrameWithOutputMaximum65535)
{
    // 65535 / 2 = 32767.5 rounds to 32768.
    expect_all_zero_frame(65535, 32768);
}

TEST(QuartetEdgeCases, AllZeroFrameWithOutputMaximum4095)
{
    // 4095 / 2 = 2047.5 rounds to 2048.
    expect_all_zero_frame(4095, 2048);
}

TEST(QuartetEdgeCases, AllStokesZeroOnALitQuartetGivesTheSameAsAllZero)
{
    Module_session session;
    Processor processor;
    const Pixel p = stokes_pixel(processor, 0, 0, 0);
    EXPECT_TRUE(std::isnan(p.normalized[0]));
    EXPECT_TRUE(std::isnan(p.normalized[1]));
    EXPECT_EQ(p.slot[1], 0);
    EXPECT_EQ(p.slot[2], 0);
    EXPECT_EQ(p.slot[3], 0);
    EXPECT_EQ(p.slot[4], 32768);
    EXPECT_EQ(p.slot[5], 0);
}

// ---------------------------------------------------------------------------
// Azimuth quadrants.

TEST(QuartetEdgeCases, S1ZeroS2PositiveGivesThreeQuartersOfTheRange)
{
    Module_session session;
    Processor processor;
    // Degrees exactly 45: 135/180 of the maximum.
    EXPECT_EQ(stokes_pixel(processor, 100, 0, 100, 65535).slot[4], 49151);  // 49151.25
    EXPECT_EQ(stokes_pixel(processor, 100, 0, 100, 4095).slot[4], 3071);    // 3071.25
    EXPECT_EQ(stokes_pixel(processor, 100, -0.0f, 7, 65535).slot[4], 49151);
}

TEST(QuartetEdgeCases, S1ZeroS2NegativeGivesOneQuarterOfTheRange)
{
    Module_session session;
    Processor processor;
    // Degrees exactly -45.
    EXPECT_EQ(stokes_pixel(processor, 100, 0, -100, 65535).slot[4], 16384);  // 16383.75
    EXPECT_EQ(stokes_pixel(processor, 100, 0, -100, 4095).slot[4], 1024);    // 1023.75
    EXPECT_EQ(stokes_pixel(processor, 100, -0.0f, -3, 65535).slot[4], 16384);
}

TEST(QuartetEdgeCases, S1PositiveS2ZeroGivesHalfTheRange)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(stokes_pixel(processor, 100, 50, 0, 65535).slot[4], 32768);
    EXPECT_EQ(stokes_pixel(processor, 100, 50, 0, 4095).slot[4], 2048);
    EXPECT_EQ(stokes_pixel(processor, 100, 50, -0.0f, 65535).slot[4], 32768);
}

TEST(QuartetEdgeCases, S1NegativeS2ZeroGivesExactlyTheMaximum)
{
    Module_session session;
    Processor processor;
    // Theta is +pi, not -pi: degrees exactly 90.
    EXPECT_EQ(stokes_pixel(processor, 100, -50, 0, 65535).slot[4], 65535);
    EXPECT_EQ(stokes_pixel(processor, 100, -50, 0, 4095).slot[4], 4095);
    EXPECT_EQ(stokes_pixel(processor, 100, -50, 0, 1000).slot[4], 1000);
}

TEST(QuartetEdgeCases, S1NegativeS2NegativeZeroTakesThePlusPiRow)
{
    Module_session session;
    Processor processor;
    // All S2 weights -0: the wide sum of (-0) x 1 terms is -0.
    const Matrix m = matrix_rows({200, 0, 0, 0}, {-50, 0, 0, 0}, {-0.0f, -0.0f, -0.0f, -0.0f});
    const Pixel p = flat_frame_pixel(processor, m, 1, 16, 65535);
    EXPECT_EQ(p.slot[4], 65535);
    EXPECT_EQ(ksi_reference::bits_of(p.normalized[1]), 0x80000000u) << "S2 / S0 = -0 / 100";
}

float arm_a_theta(float s1, float s2, float pi_offset)
{
    const float t = ksi_reference::reciprocal_estimate(s1) * s2;
    return pi_offset + ksi_reference::fast_arctangent(t);
}

float arm_b_theta(float s1, float s2)
{
    const float t = ksi_reference::reciprocal_estimate(s1) * s2;
    const float u = ksi_reference::reciprocal_estimate(t);
    const float half_pi = ksi_reference::float_from_bits(0x3FC90FDBu);
    return (0.0f - ksi_reference::fast_arctangent(u)) + (s2 > 0 ? half_pi : -half_pi);
}

std::uint16_t azimuth_of_theta(float theta, std::uint16_t output_maximum)
{
    const float degrees = theta * ksi_reference::angle_scale();
    const long double a = ((static_cast<long double>(degrees) + 90.0L) * output_maximum) / 180.0L;
    return ksi_reference::clamp_and_round(float(a), float(output_maximum));
}

TEST(QuartetEdgeCases, S1NegativeS2JustBelowZeroWrapsToNearZero)
{
    Module_session session;
    Processor processor;
    const float pi = ksi_reference::float_from_bits(0x40490FDBu);
    const std::uint16_t below = stokes_pixel(processor, 2000, -1000, -1).slot[4];
    const std::uint16_t above = stokes_pixel(processor, 2000, -1000, 1).slot[4];
    // Theta = P(t) - pi near -pi, about -89.97 degrees: a count of about 10.
    EXPECT_EQ(below, azimuth_of_theta(arm_a_theta(-1000, -1, -pi), 65535));
    EXPECT_LE(below, 15);
    // Just above zero the same quartet lands at the top of the range.
    EXPECT_EQ(above, azimuth_of_theta(arm_a_theta(-1000, 1, pi), 65535));
    EXPECT_GE(above, 65520);
}

TEST(QuartetEdgeCases, EqualMagnitudesTakeTheSecondArm)
{
    Module_session session;
    Processor processor;
    const float pi = ksi_reference::float_from_bits(0x40490FDBu);
    for (float magnitude : {1.0f, 3.0f, 1000.0f}) {
        for (float sx : {1.0f, -1.0f}) {
            for (float sy : {1.0f, -1.0f}) {
                const float s1 = sx * magnitude, s2 = sy * magnitude;
                const std::uint16_t actual = stokes_pixel(processor, 4000, s1, s2).slot[4];
                const std::uint16_t arm_b = azimuth_of_theta(arm_b_theta(s1, s2), 65535);
                const float offset = s1 > 0 ? 0.0f : (s2 >= 0 ? pi : -pi);
                const std::uint16_t arm_a = azimuth_of_theta(arm_a_theta(s1, s2, offset), 65535);
                EXPECT_EQ(actual, arm_b) << "S1 " << s1 << " S2 " << s2;
                // The two arms differ by about 0.0099 radians, about 100 counts.
                EXPECT_GT(std::abs(int(arm_a) - int(arm_b)), 50) << "S1 " << s1 << " S2 " << s2;
            }
        }
    }
}

TEST(QuartetEdgeCases, AzimuthCoversEachOctant)
{
    Module_session session;
    Processor processor;
    // Half the Stokes angle mapped from -90..90 degrees to 0..65535.
    struct Case {
        float s1, s2;
        int low, high;
    } cases[] = {
        {100, 30, 32768, 40000},   // first arm, S1 > 0, S2 > 0
        {100, -30, 25000, 32767},  // first arm, S1 > 0, S2 < 0
        {30, 100, 40000, 49151},   // second arm, S2 > 0
        {-30, 100, 49151, 57500},  // second arm, S2 > 0, S1 < 0
        {-100, 30, 57000, 65535},  // first arm + pi
        {-100, -30, 0, 8500},      // first arm - pi
        {-30, -100, 8000, 16384},  // second arm, S2 < 0
        {30, -100, 16384, 24600},  // second arm, S2 < 0, S1 > 0
    };
    for (const auto& c : cases) {
        const std::uint16_t az = stokes_pixel(processor, 1000, c.s1, c.s2).slot[4];
        EXPECT_GE(az, c.low) << "S1 " << c.s1 << " S2 " << c.s2;
        EXPECT_LE(az, c.high) << "S1 " << c.s1 << " S2 " << c.s2;
    }
}

// ---------------------------------------------------------------------------
// S0 zero, negative, small, subnormal.

TEST(QuartetEdgeCases, S0ZeroWithNonZeroS1OrS2GivesInfinityOrNaNAndDolp0)
{
    Module_session session;
    Processor processor;
    Pixel p = stokes_pixel(processor, 0, 300, 0);
    EXPECT_EQ(p.normalized[0], inf);
    EXPECT_TRUE(std::isnan(p.normalized[1]));
    EXPECT_EQ(p.slot[5], 0);
    EXPECT_EQ(p.slot[1], 0);

    p = stokes_pixel(processor, 0, -3, 5);
    EXPECT_EQ(p.normalized[0], -inf);
    EXPECT_EQ(p.normalized[1], inf);
    EXPECT_EQ(p.slot[5], 0);

    p = stokes_pixel(processor, 0, 0, -7);
    EXPECT_TRUE(std::isnan(p.normalized[0]));
    EXPECT_EQ(p.normalized[1], -inf);
    EXPECT_EQ(p.slot[5], 0);
}

TEST(QuartetEdgeCases, NegativeS0StoresZeroInSlot1AndDolp)
{
    Module_session session;
    Processor processor;
    const Pixel p = stokes_pixel(processor, -100, 50, 20);
    EXPECT_EQ(p.slot[1], 0);
    EXPECT_EQ(p.slot[5], 0);
    EXPECT_EQ(p.normalized[0], -0.5f);
    EXPECT_EQ(p.normalized[1], -0.2f);
}

TEST(QuartetEdgeCases, LargeDolpStopsAtTheOutputMaximum)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(stokes_pixel(processor, 1, 1000, 1000, 65535).slot[5], 65535);
    EXPECT_EQ(stokes_pixel(processor, 1, 1000, 1000, 4095).slot[5], 4095);
    EXPECT_EQ(stokes_pixel(processor, 10, -30, 0, 777).slot[5], 777);
}

TEST(QuartetEdgeCases, DolpUsesTheReciprocalEstimateOfS0)
{
    Module_session session;
    Processor processor;
    // DoLP = sqrt(30^2 + 40^2) x estimate(1/100) x 65535, not exactly 32767.5.
    const float e = 50.0f * ksi_reference::reciprocal_estimate(100.0f);
    const std::uint16_t expected = ksi_reference::clamp_and_round(e * 65535.0f, 65535.0f);
    EXPECT_EQ(stokes_pixel(processor, 100, 30, 40).slot[5], expected);
    EXPECT_EQ(stokes_pixel(processor, 100, -30, -40).slot[5], expected);
}

TEST(QuartetEdgeCases, SubnormalS1WithS2ZeroGivesANaNAzimuthAtTheMaximum)
{
    Module_session session;
    Processor processor;
    const float tiny = ksi_reference::float_from_bits(0x00000100u);
    // |S2| < |S1|: first arm, t = 0 x infinity = NaN.
    const Pixel p = stokes_pixel(processor, 100, tiny, 0);
    EXPECT_EQ(p.slot[4], 65535);
    EXPECT_EQ(p.slot[5], 0) << "S1 squared underflows to 0";
}

TEST(QuartetEdgeCases, SubnormalS1WithS2PositiveTakesTheSecondArmAtPlusHalfPi)
{
    Module_session session;
    Processor processor;
    const float tiny = ksi_reference::float_from_bits(0x00000100u);
    // t = infinity x 100, u = 0, theta = half pi exactly.
    EXPECT_EQ(stokes_pixel(processor, 100, tiny, 100).slot[4], 49151);
    EXPECT_EQ(stokes_pixel(processor, 100, -tiny, -100).slot[4], 16384);
}

TEST(QuartetEdgeCases, SubnormalS0GivesAnInfiniteReciprocalAndNoZeroGuard)
{
    Module_session session;
    Processor processor;
    const float tiny = ksi_reference::float_from_bits(0x00000100u);  // S0 itself
    Pixel p = stokes_pixel(processor, tiny, 100, 0);
    EXPECT_EQ(p.slot[5], 65535) << "100 x infinity clamps to the maximum";
    EXPECT_EQ(p.slot[1], 0) << "a subnormal S0 rounds to 0";
    EXPECT_EQ(p.normalized[0], inf);
    EXPECT_EQ(ksi_reference::bits_of(p.normalized[1]), 0u);

    p = stokes_pixel(processor, tiny, 0, 0);
    EXPECT_EQ(p.slot[5], 65535) << "0 x infinity is NaN, which lands on the maximum";
    EXPECT_EQ(ksi_reference::bits_of(p.normalized[0]), 0u);
}

// ---------------------------------------------------------------------------
// Clamping, rounding, non-finite values.

TEST(QuartetEdgeCases, HalfwayValuesRoundToEven)
{
    Module_session session;
    Processor processor;
    // Default matrices on a 2x2 frame: every pixel's quartet is the frame.
    auto s0_of_2x2 = [&](std::vector<std::uint16_t> input) {
        std::vector<std::uint16_t> s0(4, 0xA5A5);
        EXPECT_EQ(kl_polarization_processor_transform(processor.handle(), 0, input.data(), 0, 0, 2, 2, 16, 65535,
                                                      nullptr, s0.data(), nullptr, nullptr, nullptr, nullptr),
                  status_success);
        return s0;
    };
    for (std::uint16_t v : s0_of_2x2({1, 1, 1, 2}))
        EXPECT_EQ(v, 2) << "2.5";
    for (std::uint16_t v : s0_of_2x2({1, 2, 2, 2}))
        EXPECT_EQ(v, 4) << "3.5";
    for (std::uint16_t v : s0_of_2x2({0, 0, 0, 1}))
        EXPECT_EQ(v, 0) << "0.5";
    for (std::uint16_t v : s0_of_2x2({0, 0, 1, 2}))
        EXPECT_EQ(v, 2) << "1.5";

    // Slot 2 through custom weights, and the rescaled path.
    EXPECT_EQ(flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {0.5f, 0, 0, 0}, {}), 5, 16, 65535).slot[2], 2);
    EXPECT_EQ(flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {0.5f, 0, 0, 0}, {}), 7, 16, 65535).slot[2], 4);
    // Bit depth 1: input maximum 1. S0 = 0.5 rescaled to 5 x 0.5 = 2.5, to 7 x 0.5 = 3.5.
    EXPECT_EQ(flat_frame_pixel(processor, matrix_rows({1, 0, 0, 0}, {}, {}), 1, 1, 5).slot[1], 2);
    EXPECT_EQ(flat_frame_pixel(processor, matrix_rows({1, 0, 0, 0}, {}, {}), 1, 1, 7).slot[1], 4);
}

TEST(QuartetEdgeCases, NegativeS1AndS2StoreZeroButKeepTheirSignInSlot0)
{
    Module_session session;
    Processor processor;
    const Pixel p = stokes_pixel(processor, 2, -7, -1);
    EXPECT_EQ(p.slot[2], 0);
    EXPECT_EQ(p.slot[3], 0);
    EXPECT_EQ(p.normalized[0], -3.5f);
    EXPECT_EQ(p.normalized[1], -0.5f);
    EXPECT_EQ(p.slot[1], 2);
}

TEST(QuartetEdgeCases, NonFiniteValuesClampNaNAndPlusInfinityUpMinusInfinityDown)
{
    Module_session session;
    Processor processor;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Matrix m = matrix_rows({inf, 0, 0, 0}, {-inf, 0, 0, 0}, {nan, 0, 0, 0});
    const Pixel p = flat_frame_pixel(processor, m, 3, 12, 4095);
    EXPECT_EQ(p.slot[1], 4095) << "+infinity";
    EXPECT_EQ(p.slot[2], 0) << "-infinity";
    EXPECT_EQ(p.slot[3], 4095) << "NaN";
    EXPECT_TRUE(std::isnan(p.normalized[0])) << "-inf / inf";
    EXPECT_TRUE(std::isnan(p.normalized[1]));
    EXPECT_EQ(p.slot[4], 4095) << "NaN azimuth";
    EXPECT_EQ(p.slot[5], 4095) << "NaN DoLP";

    // Infinities survive unclamped in slot 0.
    const Pixel q = flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {inf, 0, 0, 0}, {-inf, 0, 0, 0}), 3, 12, 4095);
    EXPECT_EQ(q.normalized[0], inf);
    EXPECT_EQ(q.normalized[1], -inf);
    EXPECT_EQ(q.slot[2], 4095);
    EXPECT_EQ(q.slot[3], 0);
}

TEST(QuartetEdgeCases, InfiniteTimesZeroPixelIsNaN)
{
    Module_session session;
    Processor processor;
    // A pixel of 0 under an infinite weight gives NaN in the wide sum.
    const Pixel p = flat_frame_pixel(processor, matrix_rows({inf, 0, 0, 0}, {2, 0, 0, 0}, {}), 0, 16, 65535);
    EXPECT_EQ(p.slot[1], 65535);
    EXPECT_TRUE(std::isnan(p.normalized[0]));
}

TEST(QuartetEdgeCases, WideSumsKeepPrecisionThatSingleSumsWouldLose)
{
    Module_session session;
    Processor processor;
    // 1e8 + 65535 x 1 - 1e8: exact in the wide sums, 65536 or 65532 in single.
    const Matrix m = matrix_rows({2, 0, 0, 0}, {1e8f / 65535.0f, 1, -1e8f / 65535.0f, 0}, {});
    const Pixel p = flat_frame_pixel(processor, m, 65535, 16, 65535);
    const long double w = 1e8f / 65535.0f;
    const long double exact = (w * 65535.0L + 65535.0L) + (-w) * 65535.0L;
    EXPECT_EQ(p.slot[2], ksi_reference::clamp_and_round(float(exact), 65535.0f));
    EXPECT_EQ(p.slot[2], 65535);
}

// ---------------------------------------------------------------------------
// Input maximum and scale.

TEST(QuartetEdgeCases, InputMaximumZeroDividesSlots1To3ByZero)
{
    Module_session session;
    Processor processor;
    // Bit depth 0: positive sum -> maximum, negative -> 0, zero -> NaN -> maximum.
    Pixel p = flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {-1, 0, 0, 0}, {0, 0, 0, 0}), 5, 0, 4095);
    EXPECT_EQ(p.slot[1], 4095);
    EXPECT_EQ(p.slot[2], 0);
    EXPECT_EQ(p.slot[3], 4095);
    // Azimuth and DoLP do not depend on the input maximum.
    const Pixel same = flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {-1, 0, 0, 0}, {0, 0, 0, 0}), 5, 12, 4095);
    EXPECT_EQ(p.slot[4], same.slot[4]);
    EXPECT_EQ(p.slot[5], same.slot[5]);
    EXPECT_EQ(p.slot[4], 4095);

    // An all-zero frame under the defaults: every Stokes slot is 0 / 0.
    p = flat_frame_pixel(processor, ksi_reference::default_matrix(0), 0, 0, 1000);
    EXPECT_EQ(p.slot[1], 1000);
    EXPECT_EQ(p.slot[2], 1000);
    EXPECT_EQ(p.slot[3], 1000);
    EXPECT_EQ(p.slot[4], 500);
    EXPECT_EQ(p.slot[5], 0);
}

TEST(QuartetEdgeCases, BitDepth0WithPixelsAboveTheInputMaximum)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(8001);
    for (int i = 0; i < 20; ++i) {
        Frame_case frame = random_frame(rng, 3 + unsigned(i % 4), 2 + unsigned(i % 7));
        frame.bit_depth = 0;
        frame.input = random_input(rng, frame.pixels(), 16);
        frame.slots = all_slots;
        EXPECT_EQ(check_exported_frame(processor, frame, "bit depth 0"), 0u);
    }
}

TEST(QuartetEdgeCases, RescalingUsesOutputMaximumOverInputMaximum)
{
    Module_session session;
    Processor processor;
    // S0 = 100 at 12 bits to an 8-bit maximum: 255 x 100 / 4095 = 6.227.
    EXPECT_EQ(stokes_pixel(processor, 100, 0, 0, 255, 12).slot[1], 6);
    // Native at 8 bits: unchanged.
    EXPECT_EQ(stokes_pixel(processor, 100, 0, 0, 255, 8).slot[1], 100);
    // 12 bits to 16: 65535 x 100 / 4095 = 1600.37.
    EXPECT_EQ(stokes_pixel(processor, 100, 0, 0, 65535, 12).slot[1], 1600);
    // S1 and S2 likewise; 65535 x 4095 / 4095 = 65535.
    const Pixel p = stokes_pixel(processor, 4095, 4095, 2000, 65535, 12);
    EXPECT_EQ(p.slot[1], 65535);
    EXPECT_EQ(p.slot[2], 65535);
    EXPECT_EQ(p.slot[3], 32007);  // 65535 x 2000 / 4095 = 32007.3
}

TEST(QuartetEdgeCases, AzimuthDolpAndSlot0DoNotDependOnTheScale)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(8101);
    for (int i = 0; i < 10; ++i) {
        Frame_case frame = random_frame(rng, 5, 7);
        frame.slots = slot_bit(0) | slot_bit(4) | slot_bit(5);
        frame.output_maximum = 4095;
        frame.bit_depth = 12;  // native
        ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
        Output_arena native(frame.pixels(), frame.slots, 0xA5);
        ASSERT_EQ(transform_frame(processor.handle(), frame, native), status_success);
        for (std::uint32_t bit_depth : {0u, 8u, 16u}) {
            frame.bit_depth = bit_depth;
            Output_arena rescaled(frame.pixels(), frame.slots, 0x5A);
            ASSERT_EQ(transform_frame(processor.handle(), frame, rescaled), status_success);
            for (std::size_t p = 0; p < frame.pixels(); ++p) {
                for (int e = 0; e < 2; ++e)
                    EXPECT_TRUE(
                        ksi_reference::same_normalized(native.normalized_at(2 * p + e), rescaled.normalized_at(2 * p + e)));
                EXPECT_EQ(native.slot_at(4, p), rescaled.slot_at(4, p));
                EXPECT_EQ(native.slot_at(5, p), rescaled.slot_at(5, p));
            }
        }
    }
}

TEST(QuartetEdgeCases, BitDepth16WithOutputMaximum65535PassesValuesUnscaled)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(stokes_pixel(processor, 60000, 0, 0, 65535, 16).slot[1], 60000);
    EXPECT_EQ(stokes_pixel(processor, 12345.5f, 0, 0, 65535, 16).slot[1], 12346);
    // A flat frame at the top of the range saturates S0.
    const Pixel p = flat_frame_pixel(processor, ksi_reference::default_matrix(0), 65535, 16, 65535);
    EXPECT_EQ(p.slot[1], 65535);
    const Pixel q = flat_frame_pixel(processor, ksi_reference::default_matrix(0), 30000, 16, 65535);
    EXPECT_EQ(q.slot[1], 60000);
}

TEST(QuartetEdgeCases, PixelsAboveTheInputMaximumAreNotClipped)
{
    Module_session session;
    Processor processor;
    // 8 bits, native: a pixel of 400 gives S1 = 0.5 x 400 = 200 (not 127.5).
    EXPECT_EQ(flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {0.5f, 0, 0, 0}, {}), 400, 8, 255).slot[2], 200);
    // 4 bits (maximum 15) rescaled to 16: a pixel of 20 with S1 = half the
    // own pixel gives 65535 x 10 / 15 = 43690; clipped to 15 it would give
    // 65535 x 7.5 / 15 = 32767.5 -> 32768.
    EXPECT_EQ(flat_frame_pixel(processor, matrix_rows({2, 0, 0, 0}, {0.5f, 0, 0, 0}, {}), 20, 4, 65535).slot[2],
              43690);
    // And S0 of the defaults, 8 bits native, a flat 300: S0 = 600 -> 255.
    EXPECT_EQ(flat_frame_pixel(processor, ksi_reference::default_matrix(0), 300, 8, 255).slot[1], 255);
}

TEST(QuartetEdgeCases, OutputMaximum255IsNativeAt8BitsButNotAt12)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(stokes_pixel(processor, 200, 150, 3, 255, 8).slot[1], 200);
    EXPECT_EQ(stokes_pixel(processor, 200, 150, 3, 255, 8).slot[2], 150);
    EXPECT_EQ(stokes_pixel(processor, 200, 150, 3, 255, 8).slot[3], 3);
    // 255 x 200 / 4095 = 12.45, 255 x 150 / 4095 = 9.34, 255 x 3 / 4095 = 0.19.
    EXPECT_EQ(stokes_pixel(processor, 200, 150, 3, 255, 12).slot[1], 12);
    EXPECT_EQ(stokes_pixel(processor, 200, 150, 3, 255, 12).slot[2], 9);
    EXPECT_EQ(stokes_pixel(processor, 200, 150, 3, 255, 12).slot[3], 0);
}

// The library rounds in the caller's rounding mode and never changes it.
TEST(QuartetEdgeCases, RoundingFollowsTheCallersRoundingMode)
{
    Module_session session;
    Processor processor;
    const Matrix half_own = matrix_rows({1, 0, 0, 0}, {}, {});  // S0 = own / 2
    struct Mode {
        int mode;
        const char* name;
        std::uint16_t of_2_5, of_3_5;
    } modes[] = {{FE_TONEAREST, "to nearest", 2, 4},
                 {FE_UPWARD, "upward", 3, 4},
                 {FE_DOWNWARD, "downward", 2, 3},
                 {FE_TOWARDZERO, "toward zero", 2, 3}};
    std::mt19937_64 rng(8201);
    for (const auto& m : modes) {
        ASSERT_EQ(processor.set(same_matrix_everywhere(half_own)), status_success);
        std::vector<std::uint16_t> five(6, 5), seven(6, 7), s0_five(6), s0_seven(6);
        ASSERT_EQ(std::fesetround(m.mode), 0);
        const int status_five =
            kl_polarization_processor_transform(processor.handle(), 0, five.data(), 0, 0, 3, 2, 16, 65535, nullptr,
                                                s0_five.data(), nullptr, nullptr, nullptr, nullptr);
        const int status_seven =
            kl_polarization_processor_transform(processor.handle(), 0, seven.data(), 0, 0, 3, 2, 16, 65535, nullptr,
                                                s0_seven.data(), nullptr, nullptr, nullptr, nullptr);
        const int mode_after = std::fegetround();
        std::fesetround(FE_TONEAREST);
        ASSERT_EQ(status_five, status_success);
        ASSERT_EQ(status_seven, status_success);
        EXPECT_EQ(mode_after, m.mode) << "the transform changed the rounding mode";
        for (int i = 0; i < 6; ++i) {
            EXPECT_EQ(s0_five[i], m.of_2_5) << m.name << ": 2.5";
            EXPECT_EQ(s0_seven[i], m.of_3_5) << m.name << ": 3.5";
        }

        // Whole frames against the reference evaluated in the same mode.
        for (int i = 0; i < scaled_iterations(100); ++i) {
            Frame_case frame = random_frame(rng, 2 + unsigned(i % 6), 2 + unsigned(i % 13));
            frame.slots = all_slots;
            ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
            Output_arena arena(frame.pixels(), all_slots, 0xA5);
            std::fesetround(m.mode);
            const int status = transform_frame(processor.handle(), frame, arena);
            const auto expected = reference_outputs(frame);
            std::fesetround(FE_TONEAREST);
            ASSERT_EQ(status, status_success);
            EXPECT_EQ(compare_with_reference(frame, arena, expected, true, std::string("rounding ") + m.name), 0u);
        }
    }
}

// Every output maximum converts exactly: with bit depth 0 a zero frame's S0
// is 0 / 0 and stores the maximum itself (so the scale is never native), and
// the azimuth stores the maximum's half rounded to even.
TEST(QuartetEdgeCases, EveryOutputMaximumIsExactAndBitDepth0IsNeverNative)
{
    Module_session session;
    Processor processor;
    const std::vector<std::uint16_t> input(4, 0);
    std::vector<std::uint16_t> s0(4), azimuth(4);
    std::vector<int> maxima;
    const int step = iteration_divisor == 1 ? 1 : 7;
    for (int maximum = 1; maximum < 65535; maximum += step)
        maxima.push_back(maximum);
    maxima.push_back(65535);
    for (int maximum : maxima) {
        ASSERT_EQ(kl_polarization_processor_transform(processor.handle(), 0, input.data(), 0, 0, 2, 2, 0,
                                                      std::uint16_t(maximum), nullptr, s0.data(), nullptr, nullptr,
                                                      azimuth.data(), nullptr),
                  status_success);
        const int half_even = (maximum % 4 == 1) ? maximum / 2 : (maximum % 4 == 3 ? maximum / 2 + 1 : maximum / 2);
        for (int i = 0; i < 4; ++i) {
            ASSERT_EQ(s0[i], maximum) << "output maximum " << maximum;
            ASSERT_EQ(azimuth[i], half_even) << "output maximum " << maximum;
        }
    }
}

}  // namespace
}  // namespace core_test
