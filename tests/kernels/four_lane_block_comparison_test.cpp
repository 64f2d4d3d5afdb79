// Whole frames from the kernel family against the four-lane reference (block
// pixels) and the scalar-only sweep (every other pixel), bit for bit, for
// both block forms and for the SSE4.1 form as the exported transform runs it.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cfenv>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "four_lane_reference.h"
#include "internal_runs.h"
#include "kernel_test_support.h"
#include "transform_runs.h"

using four_lane_reference::Block_form;
using namespace kernel_test_support;

namespace {

// Runs the case through generate_polarization_output_data and compares.
Comparison check_dispatcher(const Frame_case& c, Block_form form)
{
    const Frame frame = c.frame();
    const Angle_matrices angle_matrices = c.angle_matrices();
    const Calibration_matrices matrices = matrices_of_phase(angle_matrices, c.phase);
    const Frame_outputs actual = run_dispatcher(frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices,
                                                form == Block_form::sse41);
    const Frame_outputs expected =
        expected_outputs(frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices, form);
    return compare_outputs(expected, actual, std::string(four_lane_reference::form_name(form)) + " " + c.describe());
}

// Runs the case through the exported transform, with a sensor phase and an
// origin that re-base to the case's phase.
Comparison check_transform(Processor_session& session, const Frame_case& c, std::int32_t origin_x,
                           std::int32_t origin_y, std::int32_t sensor_phase)
{
    const Frame frame = c.frame();
    const Angle_matrices angle_matrices = c.angle_matrices();
    EXPECT_EQ(session.set_coefficients(angle_matrices), 0);
    const std::int32_t phase = rebased_phase(sensor_phase, origin_x, origin_y);
    const Calibration_matrices matrices = matrices_of_phase(angle_matrices, phase);
    Transform_result actual =
        run_transform(session, frame, c.slots, sensor_phase, origin_x, origin_y, c.bit_depth, c.output_maximum);
    EXPECT_EQ(actual.status, 0);
    const Frame_outputs expected =
        expected_outputs(frame, c.slots, phase, c.bit_depth, c.output_maximum, matrices, Block_form::sse41);
    std::ostringstream context;
    context << "transform sensor phase " << sensor_phase << " origin (" << origin_x << ", " << origin_y << ") "
            << c.describe();
    return compare_outputs(expected, actual.outputs, context.str());
}

// Widths 8 to 70 with a spread of heights: small ones, both parities, and a
// few larger.
std::vector<std::pair<unsigned, unsigned>> frame_shapes(std::mt19937& random)
{
    std::vector<std::pair<unsigned, unsigned>> shapes;
    const unsigned per_width = scaled_iterations(8) > 1 ? 5 : 2;
    for (unsigned columns = 8; columns <= 70; ++columns) {
        for (unsigned i = 0; i < per_width; ++i)
            shapes.push_back({unsigned(std::uniform_int_distribution<int>(3, 20)(random)), columns});
        if (columns % 7 == 0)
            shapes.push_back({unsigned(std::uniform_int_distribution<int>(21, 90)(random)), columns});
    }
    return shapes;
}

constexpr int failure_limit = 4;

void run_random_dispatcher_cases(Block_form form, std::uint32_t seed)
{
    std::mt19937 random(seed);
    int failures = 0;
    for (const auto& shape : frame_shapes(random)) {
        const Frame_case c = random_case(random, shape.first, shape.second);
        const Comparison comparison = check_dispatcher(c, form);
        EXPECT_TRUE(comparison.equal) << comparison.report;
        if (!comparison.equal && ++failures >= failure_limit)
            FAIL() << "stopping after " << failure_limit << " failing frames";
    }
}

TEST(FourLaneBlockSse41, MatchesReferenceOnRandomFramesThroughDispatcher)
{
    REQUIRE_SSE41();
    run_random_dispatcher_cases(Block_form::sse41, 20240611u);
}

TEST(FourLaneBlockBaseline, MatchesReferenceOnRandomFramesThroughDispatcher)
{
    run_random_dispatcher_cases(Block_form::baseline, 20240612u);
}

TEST(FourLaneBlockSse41, MatchesReferenceOnRandomFramesThroughExportedTransform)
{
    REQUIRE_SSE41();
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    std::mt19937 random(777u);
    int failures = 0;
    for (const auto& shape : frame_shapes(random)) {
        Frame_case c = random_case(random, shape.first, shape.second);
        const std::int32_t origin_x = std::uniform_int_distribution<int>(-5, 5)(random);
        const std::int32_t origin_y = std::uniform_int_distribution<int>(-5, 5)(random);
        const std::int32_t sensor_phase = std::uniform_int_distribution<int>(-1, 3)(random);
        c.phase = rebased_phase(sensor_phase, origin_x, origin_y);
        const Comparison comparison = check_transform(session, c, origin_x, origin_y, sensor_phase);
        EXPECT_TRUE(comparison.equal) << comparison.report;
        if (!comparison.equal && ++failures >= failure_limit)
            FAIL() << "stopping after " << failure_limit << " failing frames";
    }
}

// Phase values outside 1 to 3 select the phase 0 table and matrices.
TEST(FourLaneBlockBothForms, OutOfRangePhaseValuesBehaveAsPhaseZero)
{
    REQUIRE_SSE41();
    std::mt19937 random(4242u);
    for (std::int32_t phase : {-1, -7, 4, 1000, -2147483647 - 1}) {
        for (Block_form form : {Block_form::sse41, Block_form::baseline}) {
            Frame_case c = random_case(random, 6, 22);
            c.phase = phase;
            const Comparison comparison = check_dispatcher(c, form);
            EXPECT_TRUE(comparison.equal) << comparison.report;
            // And the same frame as phase 0 gives the same pixels.
            const Frame frame = c.frame();
            const Angle_matrices m = c.angle_matrices();
            const Frame_outputs as_given = run_dispatcher(frame, c.slots, phase, c.bit_depth, c.output_maximum,
                                                          matrices_of_phase(m, 0), form == Block_form::sse41);
            const Frame_outputs as_zero = run_dispatcher(frame, c.slots, 0, c.bit_depth, c.output_maximum,
                                                         matrices_of_phase(m, 0), form == Block_form::sse41);
            const Comparison same = compare_outputs(as_zero, as_given, "phase " + std::to_string(phase));
            EXPECT_TRUE(same.equal) << same.report;
        }
    }
}

// Every slot subset, every phase, both forms, on a few shapes.
TEST(FourLaneBlockBothForms, EverySlotSubsetAndPhase)
{
    REQUIRE_SSE41();
    std::mt19937 random(99u);
    const unsigned shapes[][2] = {{3, 8}, {4, 13}, {5, 18}, {6, 31}};
    int failures = 0;
    for (Slot_set slots = 1; slots <= all_slots; ++slots)
        for (std::int32_t phase = 0; phase < 4; ++phase)
            for (Block_form form : {Block_form::sse41, Block_form::baseline}) {
                if (scaled_iterations(8) == 1 && (slots + unsigned(phase)) % 4 != 0)
                    continue;
                const auto& shape = shapes[(slots + unsigned(phase)) % 4];
                Frame_case c = random_case(random, shape[0], shape[1]);
                c.slots = slots;
                c.phase = phase;
                const Comparison comparison = check_dispatcher(c, form);
                EXPECT_TRUE(comparison.equal) << comparison.report;
                if (!comparison.equal && ++failures >= failure_limit)
                    FAIL() << "stopping after " << failure_limit << " failing frames";
            }
}

// Every bit depth with native and rescaled output maxima.
TEST(FourLaneBlockBothForms, EveryBitDepthNativeAndRescaled)
{
    REQUIRE_SSE41();
    std::mt19937 random(1234u);
    for (std::uint32_t bit_depth = 0; bit_depth <= 16; ++bit_depth)
        for (int variant = 0; variant < 4; ++variant)
            for (Block_form form : {Block_form::sse41, Block_form::baseline}) {
                Frame_case c = random_case(random, 7, 26);
                c.bit_depth = bit_depth;
                c.slots = all_slots;
                if (variant == 0 && bit_depth > 0)
                    c.output_maximum = std::uint16_t((1u << bit_depth) - 1u);
                else if (variant == 1)
                    c.output_maximum = 65535;
                else if (variant == 2)
                    c.output_maximum = 1;
                const Comparison comparison = check_dispatcher(c, form);
                EXPECT_TRUE(comparison.equal) << comparison.report;
            }
}

// Full sensor widths, a few rows each.
TEST(FourLaneBlockBothForms, FullCameraWidths)
{
    REQUIRE_SSE41();
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    std::mt19937 random(2448u);
    const unsigned widths[] = {2448, 2464, 2048, 1936, 1440, 4096, 5472, 2449, 2450, 2451};
    for (unsigned columns : widths) {
        const unsigned rows = unsigned(std::uniform_int_distribution<int>(3, 8)(random));
        for (Block_form form : {Block_form::sse41, Block_form::baseline}) {
            const Frame_case c = random_case(random, rows, columns);
            const Comparison comparison = check_dispatcher(c, form);
            EXPECT_TRUE(comparison.equal) << comparison.report;
        }
        Frame_case c = random_case(random, rows, columns);
        const std::int32_t sensor_phase = std::uniform_int_distribution<int>(0, 3)(random);
        c.phase = rebased_phase(sensor_phase, 1, 0);
        const Comparison comparison = check_transform(session, c, 1, 0, sensor_phase);
        EXPECT_TRUE(comparison.equal) << comparison.report;
    }
}

// One whole 2448 x 2048 frame of 12-bit pixels with all six slots.
TEST(FourLaneBlockBothForms, WholeCameraFrame)
{
    REQUIRE_SSE41();
#ifdef KSI_KERNEL_TESTS_SANITIZED
    const unsigned rows = 96;
#else
    const unsigned rows = 2048;
#endif
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    Frame_case c;
    c.rows = rows;
    c.columns = 2448;
    c.phase = 1;
    c.bit_depth = 12;
    c.output_maximum = 65535;
    c.slots = all_slots;
    c.texture = Texture::mixed;
    c.seed = 2048u;
    const Comparison through_transform = check_transform(session, c, 0, 0, 1);
    EXPECT_TRUE(through_transform.equal) << through_transform.report;
    const Comparison baseline = check_dispatcher(c, Block_form::baseline);
    EXPECT_TRUE(baseline.equal) << baseline.report;
}

// Frames too narrow or too low for a block: the scalar stages write every
// pixel, exactly as the scalar-only sweep does, in both forms.
TEST(FourLaneBlockBothForms, FramesWithoutBlockMatchScalarOnlySweep)
{
    REQUIRE_SSE41();
    std::mt19937 random(7u);
    std::vector<std::pair<unsigned, unsigned>> shapes;
    for (unsigned rows = 2; rows <= 9; ++rows)
        for (unsigned columns = 2; columns <= 7; ++columns)
            shapes.push_back({rows, columns});
    for (unsigned columns = 8; columns <= 40; ++columns)
        shapes.push_back({2, columns});
    for (const auto& shape : shapes)
        for (Block_form form : {Block_form::sse41, Block_form::baseline}) {
            const Frame_case c = random_case(random, shape.first, shape.second);
            ASSERT_EQ(four_lane_reference::block_end(c.rows, c.columns), 0u);
            const Frame frame = c.frame();
            const Angle_matrices m = c.angle_matrices();
            const Calibration_matrices matrices = matrices_of_phase(m, c.phase);
            const Frame_outputs actual = run_dispatcher(frame, c.slots, c.phase, c.bit_depth, c.output_maximum,
                                                        matrices, form == Block_form::sse41);
            const Frame_outputs scalar =
                run_scalar_only(frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices);
            const Comparison comparison =
                compare_outputs(scalar, actual, std::string(four_lane_reference::form_name(form)) + " " + c.describe());
            EXPECT_TRUE(comparison.equal) << comparison.report;
        }
}

// Conversions round under the caller's current rounding mode, and the
// library leaves that mode as it found it.
TEST(FourLaneBlockBothForms, FollowsTheCallersRoundingMode)
{
    REQUIRE_SSE41();
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    std::mt19937 random(271828u);
    for (int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        for (unsigned i = 0; i < 6; ++i) {
            Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(3, 12)(random)),
                                       unsigned(std::uniform_int_distribution<int>(8, 40)(random)));
            ASSERT_EQ(std::fesetround(mode), 0);
            const Comparison sse41 = check_dispatcher(c, Block_form::sse41);
            const Comparison baseline = check_dispatcher(c, Block_form::baseline);
            const Comparison transform = check_transform(session, c, 0, 0, c.phase);
            const int mode_after = std::fegetround();
            std::fesetround(FE_TONEAREST);
            EXPECT_EQ(mode_after, mode) << "the kernels changed the rounding mode";
            EXPECT_TRUE(sse41.equal) << "rounding mode " << mode << "\n" << sse41.report;
            EXPECT_TRUE(baseline.equal) << "rounding mode " << mode << "\n" << baseline.report;
            EXPECT_TRUE(transform.equal) << "rounding mode " << mode << "\n" << transform.report;
        }
    }
}

// The transform tests above prove the local kernels only while no vector
// extension can be loaded into this process.
TEST(FourLaneBlockSse41, NoVectorExtensionIsReachable)
{
    void* extension = dlopen("libkestrion_ksi_polarization_processor_vector_avx2.so", RTLD_LAZY | RTLD_NOLOAD);
    if (extension == nullptr)
        extension = dlopen("libkestrion_ksi_polarization_processor_vector_avx2.so", RTLD_LAZY);
    if (extension != nullptr)
        dlclose(extension);
    EXPECT_EQ(extension, nullptr)
        << "an AVX2 extension library is loadable here, so the exported transform does not run the local kernels";
}

}  // namespace
