// Both instruction forms of the local kernels on guarded buffers, chosen
// through the internal dispatcher, so that the baseline form runs natively
// here as well and not only under emulation; and the AVX2 extension in each
// lane width this processor runs, forced through its internal entry.

#include <cstdio>

#include <gtest/gtest.h>

#include "guarded_frames.h"
#include "kernel_test_support.h"
#include "kernels/generate_polarization_output_data.h"
#include "vector_avx2_module.h"

using namespace safety;

namespace {

Polarization_computation_arguments record_of(const Guarded_call& call)
{
    Polarization_computation_arguments arguments{};
        arguments.rows = call.rows;
        arguments.columns = call.columns;
        arguments.polar_phase = call.polar_phase;
        arguments.input = call.input;
        arguments.bit_depth = call.bit_depth;
        arguments.input_maximum = float((std::uint32_t(1) << call.bit_depth) - 1u);
        arguments.output_maximum = float(call.output_maximum);
        arguments.output_maximum_integer = call.output_maximum;
        arguments.normalized_stokes = call.normalized_stokes;
        arguments.s0_image = call.images[1];
        arguments.s1_image = call.images[2];
        arguments.s2_image = call.images[3];
        arguments.azimuth_image = call.images[4];
    arguments.dolp_image = call.images[5];
    return arguments;
}

Calibration_matrices default_matrices_of_phase(std::int32_t phase)
{
    static const kernel_test_support::Angle_matrices defaults = kernel_test_support::default_angle_matrices();
    return kernel_test_support::matrices_of_phase(defaults, phase);
}

Guarded_runner dispatcher(bool has_sse41)
{
    return [has_sse41](const Guarded_call& call) {
        generate_polarization_output_data(record_of(call), default_matrices_of_phase(call.polar_phase), has_sse41);
        return 0;
    };
}

Guarded_runner extension_in_lanes(unsigned lane_width)
{
    return [lane_width](const Guarded_call& call) {
        vector_avx2::transform_in_lanes(lane_width, record_of(call), default_matrices_of_phase(call.polar_phase));
        return 0;
    };
}

void expect_clean_sweep(const Sweep_plan& plan, const Guarded_runner& runner)
{
    const Sweep_result result = sweep_guarded_frames(plan, runner);
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

#define REQUIRE_LANE_WIDTH(width)                                                                            \
    if (vector_avx2::supported_lane_width() < (width)) {                                                     \
        std::printf("this processor cannot run the extension's %u-lane form; not checked here\n", (width)); \
        GTEST_SKIP();                                                                                        \
    }

}  // namespace

TEST(GuardPagesInternal, Sse41FormEverySmallSizeSlotSetAndPhase)
{
    REQUIRE_SSE41();
    expect_clean_sweep(small_size_plan(), dispatcher(true));
}

TEST(GuardPagesInternal, BaselineFormEverySmallSizeSlotSetAndPhase)
{
    expect_clean_sweep(small_size_plan(), dispatcher(false));
}

TEST(GuardPagesInternal, Sse41FormCameraSizes)
{
    REQUIRE_SSE41();
    expect_clean_sweep({camera_sizes(), representative_slot_sets()}, dispatcher(true));
}

TEST(GuardPagesInternal, BaselineFormCameraSizes)
{
    expect_clean_sweep({camera_sizes(), representative_slot_sets()}, dispatcher(false));
}

class GuardPagesExtensionLanes : public ::testing::TestWithParam<unsigned> {};

TEST_P(GuardPagesExtensionLanes, EverySmallSizeSlotSetAndPhase)
{
    REQUIRE_LANE_WIDTH(GetParam());
    expect_clean_sweep(small_size_plan(), extension_in_lanes(GetParam()));
}

TEST_P(GuardPagesExtensionLanes, CameraSizes)
{
    REQUIRE_LANE_WIDTH(GetParam());
    expect_clean_sweep({camera_sizes(), representative_slot_sets()}, extension_in_lanes(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(LaneWidths, GuardPagesExtensionLanes, ::testing::Values(8u, 16u),
                         [](const ::testing::TestParamInfo<unsigned>& width) {
                             return std::to_string(width.param) + "Lanes";
                         });
