// Both instruction forms of the local kernels on guarded buffers, chosen
// through the internal dispatcher, so that the baseline form runs natively
// here as well and not only under emulation.

#include <cstdio>

#include <gtest/gtest.h>

#include "guarded_frames.h"
#include "kernel_test_support.h"
#include "kernels/generate_polarization_output_data.h"

using namespace safety;

namespace {

Guarded_runner dispatcher(bool has_sse41)
{
    return [has_sse41](const Guarded_call& call) {
        static const kernel_test_support::Angle_matrices defaults = kernel_test_support::default_angle_matrices();
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
        generate_polarization_output_data(arguments,
                                          kernel_test_support::matrices_of_phase(defaults, call.polar_phase),
                                          has_sse41);
        return 0;
    };
}

void expect_clean_sweep(const Sweep_plan& plan, bool has_sse41)
{
    const Sweep_result result = sweep_guarded_frames(plan, dispatcher(has_sse41));
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

}  // namespace

TEST(GuardPagesInternal, Sse41FormEverySmallSizeSlotSetAndPhase)
{
    REQUIRE_SSE41();
    expect_clean_sweep({small_sizes(), every_slot_set()}, true);
}

TEST(GuardPagesInternal, BaselineFormEverySmallSizeSlotSetAndPhase)
{
    expect_clean_sweep({small_sizes(), every_slot_set()}, false);
}

TEST(GuardPagesInternal, Sse41FormCameraSizes)
{
    REQUIRE_SSE41();
    expect_clean_sweep({camera_sizes(), representative_slot_sets()}, true);
}

TEST(GuardPagesInternal, BaselineFormCameraSizes)
{
    expect_clean_sweep({camera_sizes(), representative_slot_sets()}, false);
}
