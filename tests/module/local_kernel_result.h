// What the local kernels write for a frame, computed by calling them
// directly; for tests that link the library's internals.
#pragma once

#include <cstring>

#include <gtest/gtest.h>

#include "kernels/generate_polarization_output_data.h"
#include "kestrion_ksi_polarization_processor_obj.h"
#include "module_test_support.h"

namespace ksi_test {

// The outputs of the frame at the given phase (origin (0, 0)), with the
// processor's calibration set of that phase.
inline Frame local_kernel_result(const Frame& frame, const kestrion_ksi_polarization_processor_obj& processor,
                                 std::int32_t phase)
{
    Frame expected(frame.width, frame.height);
    const Polarization_computation_arguments arguments = {
        std::uint32_t(frame.height), std::uint32_t(frame.width), phase, frame.input.data(), frame.bit_depth,
        float((1u << frame.bit_depth) - 1), float(frame.output_maximum), frame.output_maximum,
        expected.normalized_stokes.data(), expected.s0.data(), expected.s1.data(), expected.s2.data(),
        expected.azimuth.data(), expected.dolp.data()};
    generate_polarization_output_data(arguments, processor.phase_matrices[phase], __builtin_cpu_supports("sse4.1"));
    return expected;
}

inline void expect_same_outputs(const Frame& actual, const Frame& expected)
{
    EXPECT_EQ(0, std::memcmp(actual.normalized_stokes.data(), expected.normalized_stokes.data(),
                             actual.normalized_stokes.size() * sizeof(float)));
    EXPECT_EQ(actual.s0, expected.s0);
    EXPECT_EQ(actual.s1, expected.s1);
    EXPECT_EQ(actual.s2, expected.s2);
    EXPECT_EQ(actual.azimuth, expected.azimuth);
    EXPECT_EQ(actual.dolp, expected.dolp);
}

}  // namespace ksi_test
