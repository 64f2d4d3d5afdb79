// Edge cases of the four-lane block: phase lane tables, Stokes lanes, derived
// outputs and the two instruction forms, each with concrete expected values.
// Most run on five paths: the SSE4.1 form through the exported transform,
// the SSE4.1 form through the dispatcher, the baseline form through the
// dispatcher, and the AVX2 extension's transform forced to eight and to
// sixteen lanes, whose every element must be the SSE4.1 form's.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "four_lane_reference.h"
#include "internal_runs.h"
#include "kernel_test_support.h"
#include "kernels/vector_data_indices.h"
#include "transform_runs.h"
#include "vector_avx2_module.h"

using four_lane_reference::Block_form;
using namespace kernel_test_support;

namespace {

// The polarizer angle over (row, column) for a phase, read off the sensor
// quartet: top left, top right, bottom left, bottom right.
int angle_at(std::int32_t phase, unsigned row, unsigned column)
{
    static const int quartet[4][4] = {{0, 135, 45, 90}, {45, 90, 0, 135}, {90, 45, 135, 0}, {135, 0, 90, 45}};
    return quartet[phase][2 * (row % 2) + column % 2];
}

// A frame in which every pixel under the same polarizer has the same value,
// so that S0 = (v0 + v45 + v90 + v135) / 2, S1 = v0 - v90 and S2 = v45 - v135
// at every pixel, in both forms.
Frame mosaic_frame(unsigned rows, unsigned columns, std::int32_t phase, std::uint16_t v0, std::uint16_t v45,
                   std::uint16_t v90, std::uint16_t v135)
{
    Frame frame(rows, columns);
    for (unsigned r = 0; r < rows; ++r)
        for (unsigned c = 0; c < columns; ++c) {
            const int angle = angle_at(phase, r, c);
            frame.at(r, c) = angle == 0 ? v0 : angle == 45 ? v45 : angle == 90 ? v90 : v135;
        }
    return frame;
}

void for_each_block_pixel(unsigned rows, unsigned columns, const std::function<void(unsigned, unsigned)>& visit)
{
    for (unsigned r = 0; r < four_lane_reference::block_row_end(rows, columns); ++r)
        for (unsigned c = 0; c < four_lane_reference::block_end(rows, columns); ++c)
            visit(r, c);
}

bool same_normalized(float a, float b) { return (std::isnan(a) && std::isnan(b)) || bits_of(a) == bits_of(b); }

// Block pixels of a against block pixels of b; the pixels outside the block
// are not looked at.
Comparison compare_block_pixels(const Frame_outputs& expected, const Frame_outputs& actual, const std::string& context)
{
    Frame_outputs only_block = actual;
    copy_block_pixels(expected, only_block);
    return compare_outputs(only_block, actual, context);
}

// Number of pixels outside the block in which a slot differs between a and b.
unsigned scalar_pixels_differing(const Frame_outputs& a, const Frame_outputs& b, unsigned slot)
{
    unsigned count = 0;
    for (unsigned r = 0; r < a.rows(); ++r)
        for (unsigned c = 0; c < a.columns(); ++c) {
            if (four_lane_reference::is_block_pixel(a.rows(), a.columns(), r, c))
                continue;
            const bool same = slot == 0 ? same_normalized(a.normalized_at(r, c, 0), b.normalized_at(r, c, 0)) &&
                                              same_normalized(a.normalized_at(r, c, 1), b.normalized_at(r, c, 1))
                                        : a.image_at(slot, r, c) == b.image_at(slot, r, c);
            count += same ? 0 : 1;
        }
    return count;
}

enum class Path { sse41_transform, sse41_dispatcher, baseline_dispatcher, extension_8_lanes, extension_16_lanes };

unsigned extension_lane_width(Path path)
{
    return path == Path::extension_8_lanes ? 8 : path == Path::extension_16_lanes ? 16 : 0;
}

std::string path_name(const ::testing::TestParamInfo<Path>& info)
{
    switch (info.param) {
    case Path::sse41_transform:
        return "sse41_transform";
    case Path::sse41_dispatcher:
        return "sse41_dispatcher";
    case Path::baseline_dispatcher:
        return "baseline_dispatcher";
    case Path::extension_8_lanes:
        return "extension_8_lanes";
    case Path::extension_16_lanes:
        return "extension_16_lanes";
    }
    return "unknown";
}

class FourLaneBlockEdgeCases : public ::testing::TestWithParam<Path> {
protected:
    void SetUp() override
    {
        if (form() == Block_form::sse41) {
            REQUIRE_SSE41();
        }
        const unsigned lane_width = extension_lane_width(GetParam());
        if (lane_width != 0) {
            ASSERT_GE(vector_avx2::supported_lane_width(), 8u)
                << "the extension's paths need a processor with AVX2 and an operating system that saves its registers";
            if (vector_avx2::supported_lane_width() < lane_width)
                GTEST_SKIP() << "this processor has no AVX-512 (F, BW, DQ, VL): the sixteen-lane form is not run here";
        }
        if (GetParam() == Path::sse41_transform) {
            session_ = std::make_unique<Processor_session>();
            ASSERT_EQ(session_->create_status(), 0);
        }
    }

    Block_form form() const { return GetParam() == Path::baseline_dispatcher ? Block_form::baseline : Block_form::sse41; }

    // The kernel on this path, with the phase of the frame's first pixel.
    Frame_outputs run(const Frame& frame, Slot_set slots, std::int32_t phase, std::uint32_t bit_depth,
                      std::uint16_t output_maximum, const Angle_matrices& matrices = default_angle_matrices())
    {
        if (GetParam() == Path::sse41_transform) {
            EXPECT_EQ(session_->set_coefficients(matrices), 0);
            Transform_result result =
                run_transform(*session_, frame, slots, phase, 0, 0, bit_depth, output_maximum);
            EXPECT_EQ(result.status, 0);
            return std::move(result.outputs);
        }
        if (const unsigned lane_width = extension_lane_width(GetParam())) {
            Frame_outputs outputs(frame.rows, frame.columns, slots);
            const Polarization_computation_arguments arguments =
                make_arguments(frame, outputs, phase, bit_depth, output_maximum);
            vector_avx2::transform_in_lanes(lane_width, arguments, matrices_of_phase(matrices, phase));
            return outputs;
        }
        return run_dispatcher(frame, slots, phase, bit_depth, output_maximum, matrices_of_phase(matrices, phase),
                              form() == Block_form::sse41);
    }

    Frame_outputs expected(const Frame& frame, Slot_set slots, std::int32_t phase, std::uint32_t bit_depth,
                           std::uint16_t output_maximum, const Angle_matrices& matrices = default_angle_matrices())
    {
        return expected_outputs(frame, slots, phase, bit_depth, output_maximum, matrices_of_phase(matrices, phase),
                                form());
    }

    // The block's unscaled lanes at a block pixel, from the reference.
    void reference_lanes(const Frame& frame, std::int32_t phase, unsigned row, unsigned column, float& s0, float& s1,
                         float& s2)
    {
        Frame_outputs none(frame.rows, frame.columns, 0);
        const Polarization_computation_arguments arguments = make_arguments(frame, none, phase, 16, 65535);
        const four_lane_reference::Block_lanes lanes =
            four_lane_reference::stokes_lanes(arguments, row & ~1u, column & ~3u, form());
        s0 = lanes.s0[row & 1][column & 3];
        s1 = lanes.s1[row & 1][column & 3];
        s2 = lanes.s2[row & 1][column & 3];
    }

private:
    std::unique_ptr<Processor_session> session_;
};

INSTANTIATE_TEST_SUITE_P(Paths, FourLaneBlockEdgeCases,
                         ::testing::Values(Path::sse41_transform, Path::sse41_dispatcher, Path::baseline_dispatcher,
                                           Path::extension_8_lanes, Path::extension_16_lanes),
                         path_name);

// ---------------------------------------------------------------------------
// Phase lane tables

TEST(FourLanePhaseLists, LibraryListsFollowTheMosaic)
{
    // The library's lists against lists derived from the polarizer layout:
    // S0 sums may list their four vectors in any order, the differences not.
    const unsigned* library[4] = {Phase_0_indices::positions, Phase_45_indices::positions,
                                  Phase_90_indices::positions, Phase_135_indices::positions};
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        const std::array<unsigned, 16> derived = four_lane_reference::phase_list(phase);
        for (unsigned half = 0; half < 2; ++half) {
            const std::multiset<unsigned> lib(library[phase] + 4 * half, library[phase] + 4 * half + 4);
            const std::multiset<unsigned> ref(derived.begin() + 4 * half, derived.begin() + 4 * half + 4);
            EXPECT_EQ(lib, ref) << "S0 vectors, phase " << phase << (half ? " lower" : " upper");
        }
        for (unsigned p = 8; p < 16; ++p)
            EXPECT_EQ(library[phase][p], derived[p]) << "phase " << phase << " position i" << p + 1;
    }
}

TEST_P(FourLaneBlockEdgeCases, ListSelectsSameSourcesWhateverTheFlags)
{
    std::mt19937 random(31u);
    const Slot_set variants[] = {slot_bit(2), slot_bit(3), slot_bit(2) | slot_bit(3), slot_bit(1) | slot_bit(2),
                                 slot_bit(2) | slot_bit(3) | slot_bit(4), slot_bit(3) | slot_bit(5)};
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        const Frame frame = random_frame(random, 6, 20, 12, Texture::mixed);
        const Frame_outputs all = run(frame, all_slots, phase, 12, 4095);
        for (Slot_set slots : variants) {
            const Frame_outputs some = run(frame, slots, phase, 12, 4095);
            for (unsigned slot : {2u, 3u})
                if (some.has(slot))
                    for_each_block_pixel(6, 20, [&](unsigned r, unsigned c) {
                        EXPECT_EQ(some.image_at(slot, r, c), all.image_at(slot, r, c))
                            << slot_name(slot) << " at (" << r << ", " << c << ") phase " << phase << " with "
                            << slot_set_name(slots);
                    });
        }
        // Native and rescaled kernels see the same signs of S1 and S2: the
        // rescaled output (about 16 times larger) is zero exactly where the
        // native one is.
        const Frame_outputs rescaled = run(frame, all_slots, phase, 12, 65535);
        for_each_block_pixel(6, 20, [&](unsigned r, unsigned c) {
            for (unsigned slot : {2u, 3u})
                EXPECT_EQ(all.image_at(slot, r, c) == 0, rescaled.image_at(slot, r, c) == 0)
                    << slot_name(slot) << " at (" << r << ", " << c << ") phase " << phase;
        });
    }
}

TEST_P(FourLaneBlockEdgeCases, OppositePhasesNegateBothDifferences)
{
    std::mt19937 random(32u);
    for (std::int32_t phase : {0, 1}) {
        const std::int32_t opposite = phase + 2;
        const Frame frame = random_frame(random, 8, 28, 12, Texture::uniform);
        const Frame_outputs a = run(frame, all_slots, phase, 12, 4095);
        const Frame_outputs b = run(frame, all_slots, opposite, 12, 4095);
        unsigned positive_in_a[4] = {}, positive_in_b[4] = {};
        for_each_block_pixel(8, 28, [&](unsigned r, unsigned c) {
            for (unsigned slot : {2u, 3u}) {
                const std::uint16_t x = a.image_at(slot, r, c), y = b.image_at(slot, r, c);
                EXPECT_TRUE(x == 0 || y == 0) << slot_name(slot) << " at (" << r << ", " << c << "): " << x << " and "
                                              << y << " in phases " << phase << " and " << opposite;
                positive_in_a[slot] += x > 0;
                positive_in_b[slot] += y > 0;
            }
            // Same S0 and the same magnitude of (S1, S2).
            EXPECT_EQ(a.image_at(1, r, c), b.image_at(1, r, c)) << "S0 at (" << r << ", " << c << ")";
            EXPECT_EQ(a.image_at(5, r, c), b.image_at(5, r, c)) << "DoLP at (" << r << ", " << c << ")";
            for (unsigned element = 0; element < 2; ++element) {
                const float x = a.normalized_at(r, c, element), y = b.normalized_at(r, c, element);
                if (std::isnan(x)) {
                    EXPECT_TRUE(std::isnan(y));
                } else {
                    EXPECT_EQ(x, -y) << "normalized element " << element << " at (" << r << ", " << c << ")";
                }
            }
        });
        for (unsigned slot : {2u, 3u}) {
            EXPECT_GT(positive_in_a[slot], 0u);
            EXPECT_GT(positive_in_b[slot], 0u);
        }
    }
}

TEST_P(FourLaneBlockEdgeCases, FifthSourceElementReachesOnlyTheBaselineForm)
{
    // w4 of the last block of a row pair is the first column no block
    // writes; changing it may change only column block_end - 1.
    for (unsigned columns : {8u, 16u, 19u}) {
        const unsigned end = four_lane_reference::block_end(4, columns);
        Frame frame = mosaic_frame(4, columns, 0, 100, 150, 120, 170);
        const Frame_outputs before = run(frame, all_slots, 0, 12, 4095);
        for (unsigned r = 0; r < 3; ++r)
            frame.at(r, end) = 3000;
        const Frame_outputs after = run(frame, all_slots, 0, 12, 4095);
        for_each_block_pixel(4, columns, [&](unsigned r, unsigned c) {
            const bool may_change = form() == Block_form::baseline && c == end - 1;
            if (!may_change) {
                for (unsigned slot = 1; slot < 6; ++slot)
                    EXPECT_EQ(before.image_at(slot, r, c), after.image_at(slot, r, c))
                        << slot_name(slot) << " at (" << r << ", " << c << ") width " << columns;
            }
        });
        if (form() == Block_form::baseline) {
            // S0 of the last lane takes the changed element on both rows.
            EXPECT_NE(before.image_at(1, 0, end - 1), after.image_at(1, 0, end - 1));
            EXPECT_NE(before.image_at(1, 1, end - 1), after.image_at(1, 1, end - 1));
        }
        const Comparison check = compare_outputs(expected(frame, all_slots, 0, 12, 4095), after, "after the change");
        EXPECT_TRUE(check.equal) << check.report;
    }
}

TEST_P(FourLaneBlockEdgeCases, ThirdSourceRowDoesNotReachUpperRow)
{
    std::mt19937 random(34u);
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        Frame frame = random_frame(random, 4, 16, 12, Texture::uniform);
        const Frame_outputs before = run(frame, all_slots, phase, 12, 4095);
        for (unsigned c = 0; c < 16; ++c)
            frame.at(2, c) = std::uint16_t(4095 - frame.at(2, c));
        const Frame_outputs after = run(frame, all_slots, phase, 12, 4095);
        unsigned lower_changes = 0;
        for_each_block_pixel(4, 16, [&](unsigned r, unsigned c) {
            for (unsigned slot = 1; slot < 6; ++slot) {
                if (r == 0) {
                    EXPECT_EQ(before.image_at(slot, r, c), after.image_at(slot, r, c))
                        << slot_name(slot) << " at (0, " << c << ") phase " << phase;
                } else {
                    lower_changes += before.image_at(slot, r, c) != after.image_at(slot, r, c);
                }
            }
            if (r == 0) {
                for (unsigned element = 0; element < 2; ++element)
                    EXPECT_TRUE(
                        same_normalized(before.normalized_at(r, c, element), after.normalized_at(r, c, element)));
            }
        });
        EXPECT_GT(lower_changes, 0u) << "row r + 2 feeds the lower row";
    }
}

// ---------------------------------------------------------------------------
// Four-lane Stokes stage

TEST_P(FourLaneBlockEdgeCases, CustomMatricesChangeOnlyScalarStagePixels)
{
    std::mt19937 random(41u);
    const Frame frame = random_frame(random, 7, 21, 12, Texture::uniform);
    const Angle_matrices defaults = default_angle_matrices();
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        const Frame_outputs with_defaults = run(frame, all_slots, phase, 12, 4095, defaults);
        const Angle_matrices doubled = scaled(defaults, 2.0f);
        const Angle_matrices custom = random_angle_matrices(random, false);
        const Angle_matrices wild = random_angle_matrices(random, true);
        for (const Angle_matrices* m : {&doubled, &custom, &wild}) {
            const Frame_outputs with_custom = run(frame, all_slots, phase, 12, 4095, *m);
            const Comparison block = compare_block_pixels(with_defaults, with_custom, "block pixels with custom matrices");
            EXPECT_TRUE(block.equal) << block.report;
            const Comparison whole = compare_outputs(expected(frame, all_slots, phase, 12, 4095, *m), with_custom,
                                                     "custom matrices, whole frame");
            EXPECT_TRUE(whole.equal) << whole.report;
        }
        // Doubling the weights doubles S0, S1 and S2 of the scalar stages.
        const Frame_outputs with_doubled = run(frame, all_slots, phase, 12, 4095, doubled);
        for (unsigned slot : {1u, 2u, 3u})
            EXPECT_GT(scalar_pixels_differing(with_defaults, with_doubled, slot), 0u) << slot_name(slot);
        const Frame_outputs with_random = run(frame, all_slots, phase, 12, 4095, custom);
        for (unsigned slot = 0; slot < 6; ++slot)
            EXPECT_GT(scalar_pixels_differing(with_defaults, with_random, slot), 0u) << slot_name(slot);
    }
}

// Row 0 = 10, 20, 30, ...; row 1 = 60, 70, 80, ...; phase 2, native scale.
Frame worked_example_frame()
{
    Frame frame(4, 8);
    for (unsigned c = 0; c < 8; ++c) {
        frame.at(0, c) = std::uint16_t(10 * (c + 1));
        frame.at(1, c) = std::uint16_t(60 + 10 * c);
        frame.at(2, c) = std::uint16_t(110 + 10 * c);
        frame.at(3, c) = std::uint16_t(160 + 10 * c);
    }
    return frame;
}

TEST_P(FourLaneBlockEdgeCases, WorkedExampleS1OfUpperRow)
{
    const Frame_outputs out = run(worked_example_frame(), slot_bit(2), 2, 8, 255);
    const std::uint16_t expected_sse41[4] = {60, 40, 60, 60};
    const std::uint16_t expected_baseline[4] = {60, 40, 60, 40};
    const std::uint16_t* want = form() == Block_form::sse41 ? expected_sse41 : expected_baseline;
    for (unsigned c = 0; c < 4; ++c)
        EXPECT_EQ(out.image_at(2, 0, c), want[c]) << "column " << c;
}

TEST_P(FourLaneBlockEdgeCases, WorkedExampleS0OfUpperRow)
{
    const Frame_outputs out = run(worked_example_frame(), slot_bit(1), 2, 8, 255);
    const std::uint16_t expected_sse41[4] = {80, 100, 120, 120};
    const std::uint16_t expected_baseline[4] = {80, 100, 120, 140};
    const std::uint16_t* want = form() == Block_form::sse41 ? expected_sse41 : expected_baseline;
    for (unsigned c = 0; c < 4; ++c)
        EXPECT_EQ(out.image_at(1, 0, c), want[c]) << "column " << c;
}

TEST_P(FourLaneBlockEdgeCases, SaturatedQuartetStoresOutputMaximum)
{
    for (auto level : {std::pair<std::uint32_t, std::uint16_t>{12, 3000}, {16, 40000}, {8, 200}}) {
        const std::uint16_t maximum = std::uint16_t((1u << level.first) - 1u);
        const Frame frame(6, 24, level.second);
        const Frame_outputs out = run(frame, slot_bit(1), 3, level.first, maximum);
        for (unsigned r = 0; r < 6; ++r)
            for (unsigned c = 0; c < 24; ++c)
                EXPECT_EQ(out.image_at(1, r, c), maximum) << "(" << r << ", " << c << ") level " << level.second;
    }
}

TEST_P(FourLaneBlockEdgeCases, UniformFrameHasNoDifferences)
{
    for (std::int32_t phase = 0; phase < 4; ++phase)
        for (std::uint16_t level : {std::uint16_t(1), std::uint16_t(777), std::uint16_t(4095)}) {
            const Frame frame(5, 20, level);
            const Frame_outputs out = run(frame, all_slots, phase, 12, 4095);
            for_each_block_pixel(5, 20, [&](unsigned r, unsigned c) {
                EXPECT_EQ(out.image_at(2, r, c), 0);
                EXPECT_EQ(out.image_at(3, r, c), 0);
                EXPECT_EQ(bits_of(out.normalized_at(r, c, 0)), 0u) << "S1/S0 is +0";
                EXPECT_EQ(bits_of(out.normalized_at(r, c, 1)), 0u) << "S2/S0 is +0";
                EXPECT_EQ(out.image_at(4, r, c), 2048);
                EXPECT_EQ(out.image_at(5, r, c), 0);
            });
        }
}

TEST_P(FourLaneBlockEdgeCases, NegativeDifferenceStoresZero)
{
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        // S1 = -60000 and S2 = -65535 at every pixel.
        const Frame frame = mosaic_frame(5, 20, phase, 0, 0, 60000, 65535);
        for (auto depth : {std::pair<std::uint32_t, std::uint16_t>{16, 65535}, {12, 65535}, {12, 4095}}) {
            const Frame_outputs out = run(frame, slot_bit(2) | slot_bit(3), phase, depth.first, depth.second);
            for_each_block_pixel(5, 20, [&](unsigned r, unsigned c) {
                EXPECT_EQ(out.image_at(2, r, c), 0) << "(" << r << ", " << c << ")";
                EXPECT_EQ(out.image_at(3, r, c), 0) << "(" << r << ", " << c << ")";
            });
        }
        // And the mirror image stores the magnitudes, natively.
        const Frame mirror = mosaic_frame(5, 20, phase, 60000, 65535, 0, 0);
        const Frame_outputs out = run(mirror, slot_bit(2) | slot_bit(3), phase, 16, 65535);
        for_each_block_pixel(5, 20, [&](unsigned r, unsigned c) {
            EXPECT_EQ(out.image_at(2, r, c), 60000);
            EXPECT_EQ(out.image_at(3, r, c), 65535);
        });
    }
}

TEST_P(FourLaneBlockEdgeCases, BitDepthZeroDividesByZero)
{
    // Input maximum 0: its estimated reciprocal is infinite. A positive lane
    // stores the output maximum, a negative one 0, a zero one (0 x infinity,
    // not a number) the output maximum.
    std::mt19937 random(38u);
    const Frame frame = random_frame(random, 6, 24, 0, Texture::sparse);
    const Frame_outputs out = run(frame, slot_bit(1) | slot_bit(2) | slot_bit(3), 0, 0, 1000);
    unsigned seen_positive = 0, seen_negative = 0, seen_zero = 0;
    for_each_block_pixel(6, 24, [&](unsigned r, unsigned c) {
        float s0, s1, s2;
        reference_lanes(frame, 0, r, c, s0, s1, s2);
        EXPECT_EQ(out.image_at(1, r, c), 1000) << "S0 at (" << r << ", " << c << ")";
        for (auto pair : {std::pair<unsigned, float>{2, s1}, {3, s2}}) {
            const std::uint16_t want = pair.second < 0 ? 0 : 1000;
            EXPECT_EQ(out.image_at(pair.first, r, c), want)
                << slot_name(pair.first) << " at (" << r << ", " << c << ") lane value " << pair.second;
            seen_positive += pair.second > 0;
            seen_negative += pair.second < 0;
            seen_zero += pair.second == 0;
        }
    });
    EXPECT_GT(seen_positive, 0u);
    EXPECT_GT(seen_negative, 0u);
    EXPECT_GT(seen_zero, 0u);

    // The worked layout: upper row S1 of phase 0 is (row 0 even) - (row 1 odd).
    Frame explicit_frame(4, 8);
    const std::uint16_t row0[8] = {5, 1, 0, 1, 0, 1, 1, 1};
    const std::uint16_t row1[8] = {1, 2, 1, 0, 1, 1, 1, 1};
    for (unsigned c = 0; c < 8; ++c) {
        explicit_frame.at(0, c) = row0[c];
        explicit_frame.at(1, c) = row1[c];
    }
    // Lanes: 5 - 2 > 0, 0 - 2 < 0, 0 - 0 = 0, and 0 - 0 = 0 in both forms.
    const Frame_outputs lanes = run(explicit_frame, slot_bit(2), 0, 0, 1000);
    const std::uint16_t want[4] = {1000, 0, 1000, 1000};
    for (unsigned c = 0; c < 4; ++c)
        EXPECT_EQ(lanes.image_at(2, 0, c), want[c]) << "column " << c;
}

TEST_P(FourLaneBlockEdgeCases, HalfOfAnOddSumFollowsTheEstimate)
{
    // A flat frame with one pixel raised by 1: the upper row of column 0
    // sums 4v + 1, whose half is a tie that the estimate of 1/2 moves off.
    const float half = four_lane_reference::half_estimate();
    unsigned differs_from_exact_half = 0;
    for (std::uint16_t v : {std::uint16_t(0), std::uint16_t(1), std::uint16_t(2), std::uint16_t(1000),
                            std::uint16_t(5001), std::uint16_t(10000), std::uint16_t(16000)}) {
        Frame frame(4, 8, v);
        frame.at(0, 0) = std::uint16_t(v + 1);
        const Frame_outputs out = run(frame, slot_bit(1), 0, 16, 65535);
        const float sum = float(4 * std::uint32_t(v) + 1);
        const std::uint16_t want = std::uint16_t(std::lrint(sum * half));
        EXPECT_EQ(out.image_at(1, 0, 0), want) << "sum " << sum << " with estimate " << half;
        const std::uint16_t exact_half_even = std::uint16_t(std::lrint(double(sum) / 2.0));
        differs_from_exact_half += want != exact_half_even;
    }
    if (half != 0.5f) {
        EXPECT_GT(differs_from_exact_half, 0u) << "the estimate " << half << " should move some halves off the tie";
    }
}

TEST_P(FourLaneBlockEdgeCases, FlatFrameS0FollowsTheProcessorsEstimateOfTwo)
{
    // Block columns: S0 = 4v x rcpss(2); scalar columns: exactly 2v.
    const float half = four_lane_reference::half_estimate();
    for (std::uint16_t v : {std::uint16_t(1), std::uint16_t(999), std::uint16_t(30000), std::uint16_t(32767)}) {
        const Frame frame(5, 19, v);
        const Frame_outputs out = run(frame, slot_bit(1), 1, 16, 65535);
        const std::uint16_t block_value = std::uint16_t(std::lrint(float(4 * std::uint32_t(v)) * half));
        for (unsigned r = 0; r < 5; ++r)
            for (unsigned c = 0; c < 19; ++c) {
                const bool block = four_lane_reference::is_block_pixel(5, 19, r, c);
                EXPECT_EQ(out.image_at(1, r, c), block ? block_value : std::uint16_t(2 * v))
                    << "(" << r << ", " << c << ") level " << v << (block ? " block" : " scalar");
            }
    }
    // Rescaled: (S0 x output maximum) x rcpps(input maximum).
    const Frame frame(4, 12, 1000);
    const Frame_outputs out = run(frame, slot_bit(1), 1, 12, 65535);
    const float rescaled =
        (float(4000) * half * 65535.0f) * four_lane_reference::lane_reciprocal_estimate(4095.0f);
    for_each_block_pixel(4, 12, [&](unsigned r, unsigned c) {
        EXPECT_EQ(out.image_at(1, r, c), std::uint16_t(std::lrint(rescaled))) << "(" << r << ", " << c << ")";
    });
    EXPECT_EQ(out.image_at(1, 0, 8), 32007) << "scalar column: 65535 x 2000 / 4095 = 32007.3";
}

TEST_P(FourLaneBlockEdgeCases, NormalizedPairAndDolpInheritTheEstimateOfTwo)
{
    // 0 degrees 3000, 90 degrees 1000, 45 and 135 degrees 2000: S1 = 2000,
    // S2 = 0, and the quartet sums to 8000. The block's S0 is 8000 x
    // rcpss(2), the scalar stages' exactly 4000.
    const float half = four_lane_reference::half_estimate();
    const Frame frame = mosaic_frame(5, 19, 0, 3000, 2000, 1000, 2000);
    const Frame_outputs out = run(frame, slot_bit(0) | slot_bit(5), 0, 12, 4095);
    const float block_s0 = 8000.0f * half;
    const float block_ratio = 2000.0f / block_s0;
    const std::uint16_t block_dolp = four_lane_reference::store_lane(
        (2000.0f * four_lane_reference::lane_reciprocal_estimate(block_s0)) * 4095.0f, 4095.0f);
    const std::uint16_t scalar_dolp = four_lane_reference::store_lane(
        (2000.0f * four_lane_reference::scalar_reciprocal_estimate(4000.0f)) * 4095.0f, 4095.0f);
    for (unsigned r = 0; r < 4; ++r)
        for (unsigned c = 0; c < 19; ++c) {
            const bool block = four_lane_reference::is_block_pixel(5, 19, r, c);
            EXPECT_EQ(bits_of(out.normalized_at(r, c, 0)), bits_of(block ? block_ratio : 0.5f))
                << "(" << r << ", " << c << ") " << out.normalized_at(r, c, 0);
            EXPECT_EQ(bits_of(out.normalized_at(r, c, 1)), 0u) << "(" << r << ", " << c << ")";
            EXPECT_EQ(out.image_at(5, r, c), block ? block_dolp : scalar_dolp) << "(" << r << ", " << c << ")";
        }
}

// ---------------------------------------------------------------------------
// Derived outputs

TEST_P(FourLaneBlockEdgeCases, UniformQuartetGivesHalfAzimuthAndZeroDolp)
{
    for (auto maximum : {std::pair<std::uint16_t, std::uint16_t>{65535, 32768}, {4095, 2048}}) {
        const Frame frame(5, 16, 1234);
        const Frame_outputs out = run(frame, slot_bit(4) | slot_bit(5), 2, 16, maximum.first);
        for (unsigned r = 0; r < 5; ++r)
            for (unsigned c = 0; c < 16; ++c) {
                EXPECT_EQ(out.image_at(4, r, c), maximum.second) << "(" << r << ", " << c << ")";
                EXPECT_EQ(out.image_at(5, r, c), 0) << "(" << r << ", " << c << ")";
            }
    }
}

TEST_P(FourLaneBlockEdgeCases, AllZeroQuartet)
{
    for (auto maximum : {std::pair<std::uint16_t, std::uint16_t>{65535, 32768}, {4095, 2048}}) {
        const Frame frame(6, 20, 0);
        const Frame_outputs out = run(frame, all_slots, 0, 12, maximum.first);
        for (unsigned r = 0; r < 6; ++r)
            for (unsigned c = 0; c < 20; ++c) {
                EXPECT_TRUE(std::isnan(out.normalized_at(r, c, 0))) << "(" << r << ", " << c << ")";
                EXPECT_TRUE(std::isnan(out.normalized_at(r, c, 1))) << "(" << r << ", " << c << ")";
                for (unsigned slot : {1u, 2u, 3u, 5u})
                    EXPECT_EQ(out.image_at(slot, r, c), 0) << slot_name(slot) << " (" << r << ", " << c << ")";
                EXPECT_EQ(out.image_at(4, r, c), maximum.second) << "(" << r << ", " << c << ")";
            }
    }
}

TEST_P(FourLaneBlockEdgeCases, NegativeS1WithZeroS2GivesOutputMaximum)
{
    for (std::int32_t phase = 0; phase < 4; ++phase)
        for (std::uint16_t maximum : {std::uint16_t(65535), std::uint16_t(4095)}) {
            // S1 = 100 - 500 < 0, S2 = 300 - 300 = 0: angle +pi, exactly 90 degrees.
            const Frame frame = mosaic_frame(5, 20, phase, 100, 300, 500, 300);
            const Frame_outputs out = run(frame, slot_bit(4), phase, 12, maximum);
            for_each_block_pixel(5, 20, [&](unsigned r, unsigned c) {
                EXPECT_EQ(out.image_at(4, r, c), maximum) << "(" << r << ", " << c << ") phase " << phase;
            });
        }
}

TEST_P(FourLaneBlockEdgeCases, SmallNegativeS2WithNegativeS1WrapsToNearZero)
{
    // S1 = -1000, S2 = -10: angle -pi + atan(0.01), about 101.4 of 65535.
    // With S2 = +10 the same magnitude lies just below the maximum.
    const Frame below = mosaic_frame(4, 16, 0, 0, 0, 1000, 10);
    const Frame above = mosaic_frame(4, 16, 0, 0, 10, 1000, 0);
    const Frame_outputs low = run(below, slot_bit(4), 0, 12, 65535);
    const Frame_outputs high = run(above, slot_bit(4), 0, 12, 65535);
    const std::uint16_t want_low = four_lane_reference::store_lane(
        four_lane_reference::azimuth_before_store(-1000.0f, -10.0f, 65535), 65535.0f);
    const std::uint16_t want_high = four_lane_reference::store_lane(
        four_lane_reference::azimuth_before_store(-1000.0f, 10.0f, 65535), 65535.0f);
    EXPECT_NEAR(want_low, 101, 2);
    EXPECT_NEAR(want_high, 65434, 2);
    for_each_block_pixel(4, 16, [&](unsigned r, unsigned c) {
        EXPECT_EQ(low.image_at(4, r, c), want_low) << "(" << r << ", " << c << ")";
        EXPECT_EQ(high.image_at(4, r, c), want_high) << "(" << r << ", " << c << ")";
    });
}

TEST_P(FourLaneBlockEdgeCases, EqualMagnitudesTakeTheSecondArm)
{
    // |S2| = |S1| is not "smaller", so the angle is +-half pi - P(x/y).
    // For S1 = S2 = 1000: half pi - P(1) = 0.790350 rad, 22.642 degrees,
    // 112.642 / 180 x 65535 = 41011; the first arm would give 40907.
    // For S1 = -1000, S2 = 1000: half pi - P(-1) gives 57291; the first arm
    // would give 57394.
    struct Case {
        std::uint16_t v0, v45, v90, v135;
        int second_arm, first_arm;
    };
    const Case cases[] = {{1000, 1000, 0, 0, 41011, 40907}, {0, 1000, 1000, 0, 57291, 57394},
                          {1000, 0, 0, 1000, 24524, 24628}, {0, 0, 1000, 1000, 8244, 8140}};
    for (const Case& k : cases) {
        const Frame frame = mosaic_frame(4, 12, 3, k.v0, k.v45, k.v90, k.v135);
        const Frame_outputs out = run(frame, slot_bit(4), 3, 12, 65535);
        for_each_block_pixel(4, 12, [&](unsigned r, unsigned c) {
            const int value = out.image_at(4, r, c);
            EXPECT_NEAR(value, k.second_arm, 3) << "(" << r << ", " << c << ")";
            EXPECT_GT(std::abs(value - k.first_arm), 50) << "(" << r << ", " << c << ")";
        });
    }
}

TEST_P(FourLaneBlockEdgeCases, SingleLitPixelSaturatesDolp)
{
    // One lit polarizer of four: DoLP = |S1| / S0 = 2 before the clamps.
    for (std::uint16_t maximum : {std::uint16_t(65535), std::uint16_t(4095), std::uint16_t(1)}) {
        const Frame frame = mosaic_frame(4, 12, 1, 1000, 0, 0, 0);
        const Frame_outputs out = run(frame, slot_bit(5), 1, 12, maximum);
        for_each_block_pixel(4, 12, [&](unsigned r, unsigned c) {
            EXPECT_EQ(out.image_at(5, r, c), maximum) << "(" << r << ", " << c << ")";
        });
    }
    // One lit pixel in a dark frame: every block quartet that holds it
    // saturates, every other one is all zero and stores 0.
    Frame frame(6, 16, 0);
    frame.at(2, 5) = 1000;
    const Frame_outputs out = run(frame, slot_bit(5), 0, 12, 4095);
    unsigned lit = 0;
    for_each_block_pixel(6, 16, [&](unsigned r, unsigned c) {
        float s0, s1, s2;
        reference_lanes(frame, 0, r, c, s0, s1, s2);
        EXPECT_EQ(out.image_at(5, r, c), s0 != 0.0f ? 4095 : 0) << "(" << r << ", " << c << ")";
        lit += s0 != 0.0f;
    });
    EXPECT_GT(lit, 0u);
}

TEST_P(FourLaneBlockEdgeCases, NegativeDifferencesKeepTheirSignInDerivedOutputs)
{
    // S1 = 100 - 900 = -800, S2 = 200 - 700 = -500; the mirror frame has
    // +800 and +500.
    const Frame negative = mosaic_frame(5, 16, 2, 100, 200, 900, 700);
    const Frame positive = mosaic_frame(5, 16, 2, 900, 700, 100, 200);
    const Frame_outputs n = run(negative, all_slots, 2, 12, 4095);
    const Frame_outputs p = run(positive, all_slots, 2, 12, 4095);
    for_each_block_pixel(5, 16, [&](unsigned r, unsigned c) {
        EXPECT_LT(n.normalized_at(r, c, 0), 0.0f);
        EXPECT_LT(n.normalized_at(r, c, 1), 0.0f);
        EXPECT_EQ(n.normalized_at(r, c, 0), -p.normalized_at(r, c, 0));
        EXPECT_EQ(n.normalized_at(r, c, 1), -p.normalized_at(r, c, 1));
        // Both negative, |S2| < |S1|: angle in (-pi, -3 pi / 4), azimuth in
        // the lowest eighth; the mirror lies in (3/8, 1/2) of the range.
        EXPECT_LT(n.image_at(4, r, c), 4095 / 8);
        EXPECT_GT(p.image_at(4, r, c), 4095 / 2);
        EXPECT_EQ(n.image_at(5, r, c), p.image_at(5, r, c)) << "DoLP squares the sign away";
        EXPECT_EQ(n.image_at(2, r, c), 0);
        EXPECT_EQ(n.image_at(3, r, c), 0);
        EXPECT_EQ(p.image_at(2, r, c), 800);
        EXPECT_EQ(p.image_at(3, r, c), 500);
    });
}

// ---------------------------------------------------------------------------
// Instruction-set variants

TEST(FourLaneBlockForms, Sse41FourthLaneRepeatsThirdBaselineComputesItsOwn)
{
    REQUIRE_SSE41();
    std::mt19937 random(51u);
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    const Angle_matrices defaults = default_angle_matrices();
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        const Frame frame = random_frame(random, 6, 30, 16, Texture::full_range);
        const Calibration_matrices matrices = matrices_of_phase(defaults, phase);
        const Frame_outputs sse41 = run_dispatcher(frame, all_slots, phase, 16, 65535, matrices, true);
        const Frame_outputs baseline = run_dispatcher(frame, all_slots, phase, 16, 65535, matrices, false);
        Transform_result transformed = run_transform(session, frame, all_slots, phase, 0, 0, 16, 65535);
        ASSERT_EQ(transformed.status, 0);
        const Comparison same = compare_outputs(sse41, transformed.outputs, "transform against dispatcher");
        EXPECT_TRUE(same.equal) << same.report;

        unsigned own_values = 0, fourth_lanes = 0;
        for_each_block_pixel(6, 30, [&](unsigned r, unsigned c) {
            if (c % 4 == 3) {
                ++fourth_lanes;
                for (unsigned slot = 1; slot < 6; ++slot)
                    EXPECT_EQ(sse41.image_at(slot, r, c), sse41.image_at(slot, r, c - 1))
                        << slot_name(slot) << " at (" << r << ", " << c << ") phase " << phase;
                for (unsigned element = 0; element < 2; ++element)
                    EXPECT_TRUE(same_normalized(sse41.normalized_at(r, c, element),
                                                sse41.normalized_at(r, c - 1, element)))
                        << "normalized at (" << r << ", " << c << ")";
                bool own = false;
                for (unsigned slot = 1; slot < 6; ++slot)
                    own = own || baseline.image_at(slot, r, c) != baseline.image_at(slot, r, c - 1);
                for (unsigned element = 0; element < 2; ++element)
                    own = own || !same_normalized(baseline.normalized_at(r, c, element),
                                                  baseline.normalized_at(r, c - 1, element));
                own_values += own;
            } else {
                for (unsigned slot = 1; slot < 6; ++slot)
                    EXPECT_EQ(sse41.image_at(slot, r, c), baseline.image_at(slot, r, c))
                        << slot_name(slot) << " at (" << r << ", " << c << ") phase " << phase;
                for (unsigned element = 0; element < 2; ++element)
                    EXPECT_TRUE(same_normalized(sse41.normalized_at(r, c, element),
                                                baseline.normalized_at(r, c, element)));
            }
        });
        EXPECT_GT(own_values, fourth_lanes / 2) << "the baseline form computes column c + 3 from its own quartet";
        const Comparison baseline_check = compare_outputs(
            expected_outputs(frame, all_slots, phase, 16, 65535, matrices, Block_form::baseline), baseline,
            "baseline");
        EXPECT_TRUE(baseline_check.equal) << baseline_check.report;
        // Outside the block the two forms are the same code.
        for (unsigned slot = 0; slot < 6; ++slot)
            EXPECT_EQ(scalar_pixels_differing(sse41, baseline, slot), 0u) << slot_name(slot);
    }
}

TEST(FourLaneBlockForms, FlatImageBothFormsAgreeEverywhere)
{
    REQUIRE_SSE41();
    const Angle_matrices defaults = default_angle_matrices();
    for (std::uint16_t level : {std::uint16_t(0), std::uint16_t(3), std::uint16_t(2047), std::uint16_t(65535)})
        for (unsigned columns : {8u, 13u, 26u})
            for (std::int32_t phase = 0; phase < 4; ++phase) {
                const Frame frame(5, columns, level);
                const Calibration_matrices matrices = matrices_of_phase(defaults, phase);
                const Frame_outputs sse41 = run_dispatcher(frame, all_slots, phase, 12, 65535, matrices, true);
                const Frame_outputs baseline = run_dispatcher(frame, all_slots, phase, 12, 65535, matrices, false);
                const Comparison same = compare_outputs(sse41, baseline, "flat frame, sse41 against baseline");
                EXPECT_TRUE(same.equal) << same.report;
            }
}

TEST_P(FourLaneBlockEdgeCases, ValuesAbove32767AreStoredUnchanged)
{
    // Phase 0: S1 of the upper row is (row r, even column) - (row r + 1, odd
    // column), of the lower row (row r + 2, even column) - (row r + 1, odd
    // column). With the 90 degree pixels dark, slot 2 holds the 0 degree
    // pixels themselves.
    std::mt19937 random(53u);
    Frame frame(5, 24);
    for (unsigned r = 0; r < 5; ++r)
        for (unsigned c = 0; c < 24; ++c) {
            const int angle = angle_at(0, r, c);
            frame.at(r, c) = angle == 0    ? std::uint16_t(std::uniform_int_distribution<int>(32768, 65535)(random))
                             : angle == 90 ? 0
                                           : std::uint16_t(std::uniform_int_distribution<int>(0, 65535)(random));
        }
    const unsigned even_sse41[4] = {0, 2, 2, 2}, even_baseline[4] = {0, 2, 2, 4};
    const unsigned* even = form() == Block_form::sse41 ? even_sse41 : even_baseline;
    const Frame_outputs out = run(frame, slot_bit(2), 0, 16, 65535);
    for_each_block_pixel(5, 24, [&](unsigned r, unsigned c) {
        const unsigned source_row = r % 2 == 0 ? r : r + 1;
        const std::uint16_t want = frame.at(source_row, (c & ~3u) + even[c % 4]);
        ASSERT_GE(want, 32768);
        EXPECT_EQ(out.image_at(2, r, c), want) << "(" << r << ", " << c << ")";
    });
}

TEST_P(FourLaneBlockEdgeCases, TiesRoundToEven)
{
    // A uniform frame puts the azimuth at 90 x (maximum / 180). For these odd
    // maxima that product is exactly maximum / 2 in single precision.
    struct Case {
        std::uint16_t maximum, stored;
    };
    for (const Case& k : {Case{5, 2}, Case{9, 4}, Case{11, 6}, Case{4095, 2048}, Case{65535, 32768}}) {
        const float scale = float(k.maximum) / 180.0f;
        ASSERT_EQ(90.0f * scale, float(k.maximum) / 2.0f) << "maximum " << k.maximum << " is no tie here";
        const Frame frame(4, 12, 500);
        const Frame_outputs out = run(frame, slot_bit(4), 1, 12, k.maximum);
        for_each_block_pixel(4, 12, [&](unsigned r, unsigned c) {
            EXPECT_EQ(out.image_at(4, r, c), k.stored) << "maximum " << k.maximum << " (" << r << ", " << c << ")";
        });
    }
}

TEST_P(FourLaneBlockEdgeCases, NativeScaleDoesNotChangeDerivedSlots)
{
    std::mt19937 random(55u);
    const Slot_set derived = slot_bit(0) | slot_bit(4) | slot_bit(5);
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        const Frame frame = random_frame(random, 7, 27, 12, Texture::mixed);
        for (Slot_set slots : {derived, all_slots}) {
            const Frame_outputs native = run(frame, slots, phase, 12, 4095);
            for (std::uint32_t other_depth : {11u, 0u, 16u}) {
                Frame_outputs rescaled = run(frame, slots, phase, other_depth, 4095);
                // Only slots 0, 4 and 5 are compared: copy the others over.
                for (unsigned slot = 1; slot < 4; ++slot)
                    if (rescaled.has(slot))
                        for (unsigned r = 0; r < 7; ++r)
                            for (unsigned c = 0; c < 27; ++c)
                                rescaled.image_element(slot, r, c) = native.image_at(slot, r, c);
                const Comparison same = compare_outputs(
                    native, rescaled, "bit depth 12 against " + std::to_string(other_depth) + ", maximum 4095");
                EXPECT_TRUE(same.equal) << same.report;
            }
        }
    }
}

// ---------------------------------------------------------------------------
// The seam between block columns and scalar columns

TEST_P(FourLaneBlockEdgeCases, SeamBetweenBlockAndScalarColumns)
{
    // Flat frame of 100 with every weight tripled: the block keeps its fixed
    // coefficients (S0 = 400 x rcpss(2), about 200), the scalar stages apply
    // the matrices (S0 = 0.5 x 3 x 400 = 600).
    const Angle_matrices tripled = scaled(default_angle_matrices(), 3.0f);
    const std::uint16_t block_value =
        std::uint16_t(std::lrint(400.0f * four_lane_reference::half_estimate()));
    for (unsigned columns = 8; columns <= 23; ++columns)
        for (unsigned rows : {3u, 4u, 5u, 6u}) {
            const Frame frame(rows, columns, 100);
            const Frame_outputs out = run(frame, slot_bit(1), 2, 12, 4095, tripled);
            const unsigned end = four_lane_reference::block_end(rows, columns);
            ASSERT_EQ(end, 4 * (columns / 4 - 1));
            for (unsigned r = 0; r < rows; ++r)
                for (unsigned c = 0; c < columns; ++c) {
                    const bool pair_row = r < (rows % 2 == 0 ? rows - 2 : rows - 1);
                    const bool block = pair_row && c < end;
                    EXPECT_EQ(out.image_at(1, r, c), block ? block_value : 600)
                        << rows << "x" << columns << " at (" << r << ", " << c << ")";
                }
        }
    // And on random data, with random weights, against the reference and the
    // scalar-only sweep.
    std::mt19937 random(60u);
    for (unsigned columns = 8; columns <= 23; ++columns) {
        const Frame frame = random_frame(random, 6, columns, 12, Texture::uniform);
        const Angle_matrices m = random_angle_matrices(random, false);
        const Comparison check = compare_outputs(expected(frame, all_slots, 3, 12, 4095, m),
                                                 run(frame, all_slots, 3, 12, 4095, m),
                                                 "seam, width " + std::to_string(columns));
        EXPECT_TRUE(check.equal) << check.report;
    }
}

}  // namespace
