// The extension in each lane width against the library's local SSE4.1
// kernels, element by element: every frame size from 2x2 to 70x70, camera
// sizes, every phase (negative ones too), all 63 slot sets, every placement of
// the 16-bit images, bit depths 0 to 16, native and rescaled output maxima,
// default, custom and non-finite matrices.
#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <random>
#include <string>

#include "extension_runs.h"
#include "vector_avx2_module.h"

using namespace extension_test_support;

namespace {

constexpr int failure_limit = 4;

class ExtensionIdentity : public ::testing::TestWithParam<unsigned> {
protected:
    void SetUp() override
    {
        ASSERT_GE(vector_avx2::supported_lane_width(), 8u)
            << "the extension's tests need a processor with AVX2 and an operating system that saves its registers";
        if (GetParam() == 16 && !sixteen_lanes_runnable())
            GTEST_SKIP() << "this processor has no AVX-512 (F, BW, DQ, VL): the sixteen-lane form is not run here";
    }

    unsigned lane_width() const { return GetParam(); }

    // Compares and stops the test after a few failing frames.
    void check(const Frame_case& c, int& failures, std::size_t image_offset = 0)
    {
        const Comparison comparison = compare_with_local(lane_width(), c, image_offset);
        EXPECT_TRUE(comparison.equal) << comparison.report;
        if (!comparison.equal && ++failures >= failure_limit)
            FAIL() << "stopping after " << failure_limit << " failing frames";
    }
};

std::string width_name(const ::testing::TestParamInfo<unsigned>& info)
{
    return std::to_string(info.param) + "_lanes";
}

INSTANTIATE_TEST_SUITE_P(Widths, ExtensionIdentity, ::testing::Values(8u, 16u), width_name);

TEST_P(ExtensionIdentity, EveryFrameSizeFrom2x2To70x70)
{
    std::mt19937 random(7000u + lane_width());
    int failures = 0;
    const unsigned step = scaled_iterations(8) > 1 ? 1 : 3;
    for (unsigned rows = 2; rows <= 70; rows += step)
        for (unsigned columns = 2; columns <= 70; columns += 1) {
            Frame_case c = random_case(random, rows, columns);
            c.phase = std::uniform_int_distribution<int>(-5, 3)(random);  // negative ones are phase 0
            check(c, failures);
            if (HasFatalFailure())
                return;
        }
}

TEST_P(ExtensionIdentity, CameraSizes)
{
    struct Size {
        unsigned rows, columns;
    };
#ifdef KSI_KERNEL_TESTS_SANITIZED
    const Size sizes[] = {{64, 2448}, {35, 1224}, {45, 2447}};
#else
    const Size sizes[] = {{2048, 2448}, {1024, 1224}, {2045, 2447}, {2047, 2446}, {1023, 1225}};
#endif
    std::mt19937 random(2448u + lane_width());
    int failures = 0;
    for (const Size& size : sizes) {
        for (Slot_set slots : {all_slots, slot_bit(1), slot_bit(4) | slot_bit(5), Slot_set(0x0Eu)}) {
            Frame_case c = random_case(random, size.rows, size.columns);
            c.slots = slots;
            check(c, failures);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(ExtensionIdentity, EverySlotSetAndPhase)
{
    std::mt19937 random(63u + lane_width());
    int failures = 0;
    for (Slot_set slots = 1; slots <= all_slots; ++slots)
        for (std::int32_t phase : {-7, -1, 0, 1, 2, 3, 4}) {
            Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(3, 12)(random)),
                                       unsigned(std::uniform_int_distribution<int>(8, 80)(random)));
            c.slots = slots;
            c.phase = phase;
            check(c, failures);
            if (HasFatalFailure())
                return;
        }
}

// The wide steps of a row start after as many four-lane blocks as bring
// their 16-bit stores to a multiple of their size, or at once where whole
// blocks cannot: every even address modulo a cache line, with a single vector
// per step (the azimuth) and with two, on rows of many widths.
TEST_P(ExtensionIdentity, EveryPlacementOfTheImages)
{
    std::mt19937 random(64u + lane_width());
    int failures = 0;
    for (std::size_t image_offset = 0; image_offset < 32; ++image_offset)
        for (Slot_set slots : {all_slots, slot_bit(1), slot_bit(4), Slot_set(0x0Eu)}) {
            Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(3, 7)(random)),
                                       unsigned(std::uniform_int_distribution<int>(4, 160)(random)));
            c.slots = slots;
            check(c, failures, image_offset);
            if (HasFatalFailure())
                return;
        }
}

TEST_P(ExtensionIdentity, EveryBitDepthNativeAndRescaled)
{
    std::mt19937 random(16u + lane_width());
    int failures = 0;
    for (std::uint32_t bit_depth = 0; bit_depth <= 16; ++bit_depth) {
        const std::uint16_t native = std::uint16_t((1u << bit_depth) - 1u);
        for (std::uint16_t output_maximum : {native, std::uint16_t(65535), std::uint16_t(255), std::uint16_t(1),
                                             std::uint16_t(4095), random_output_maximum(random, bit_depth)}) {
            if (output_maximum == 0)
                continue;  // bit depth 0: the transform refuses an output maximum of 0
            Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(3, 9)(random)),
                                       unsigned(std::uniform_int_distribution<int>(16, 70)(random)));
            c.bit_depth = bit_depth;
            c.output_maximum = output_maximum;
            c.slots = all_slots;
            check(c, failures);
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(ExtensionIdentity, DefaultCustomAndNonFiniteMatrices)
{
    std::mt19937 random(4u + lane_width());
    int failures = 0;
    for (int matrices_kind : {0, 1, 2})
        for (unsigned i = 0; i < scaled_iterations(24); ++i) {
            Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(2, 20)(random)),
                                       unsigned(std::uniform_int_distribution<int>(2, 70)(random)));
            c.matrices_kind = matrices_kind;
            check(c, failures);
            if (HasFatalFailure())
                return;
        }
}

// The conversions to 16-bit elements round under the caller's mode, in every
// width as in the local kernels.
TEST_P(ExtensionIdentity, FollowsTheCallersRoundingMode)
{
    std::mt19937 random(5u + lane_width());
    int failures = 0;
    for (int mode : {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
        ASSERT_EQ(std::fesetround(mode), 0);
        for (unsigned i = 0; i < 6; ++i)
            check(random_case(random, 6, unsigned(std::uniform_int_distribution<int>(16, 70)(random))), failures);
        ASSERT_EQ(std::fesetround(FE_TONEAREST), 0);
        if (HasFatalFailure())
            return;
    }
}

}  // namespace
