// The product itself: this executable links libkestrion_ksi_polarization_processor.so
// and reaches it only through the exported C functions. Block pixels must match
// the SSE4.1 four-lane reference bit for bit, every pixel must be written, and
// custom coefficients must leave the block pixels alone.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "four_lane_reference.h"
#include "kernel_test_support.h"
#include "kestrion_ksi_polarization_processor.h"
#include "transform_runs.h"

using four_lane_reference::Block_form;
using namespace kernel_test_support;

namespace {

// The library's own output with its block pixels replaced by the reference.
Frame_outputs with_reference_blocks(const Frame& frame, const Frame_outputs& actual, std::int32_t phase,
                                    std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    Frame_outputs expected = actual;
    const Polarization_computation_arguments arguments =
        make_arguments(frame, expected, phase, bit_depth, output_maximum);
    four_lane_reference::write_block_pixels(arguments, Block_form::sse41);
    return expected;
}

TEST(SharedObject, TransformResolvesIntoTheSharedObject)
{
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&kl_polarization_processor_transform), &info), 0);
    ASSERT_NE(info.dli_fname, nullptr);
    EXPECT_NE(std::string(info.dli_fname).find("libkestrion_ksi_polarization_processor.so"), std::string::npos)
        << info.dli_fname;
}

// These tests run the library's copy with no extension beside it: the
// exported transform computes every frame with its own SSE4.1 form.
TEST(SharedObject, NoExtensionIsLoadedBesideThisCopy)
{
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    void* extension = dlopen("libkestrion_ksi_polarization_processor_vector_avx2.so", RTLD_LAZY | RTLD_NOLOAD);
    if (extension != nullptr)
        dlclose(extension);
    EXPECT_EQ(extension, nullptr) << "an AVX2 extension was loaded, so the local kernels are not what runs here";
}

TEST(SharedObject, BlockPixelsMatchSse41ReferenceAndEveryPixelIsWritten)
{
    REQUIRE_SSE41();
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    std::mt19937 random(515u);
    const unsigned iterations = scaled_iterations(400);
    for (unsigned i = 0; i < iterations; ++i) {
        const unsigned rows = unsigned(std::uniform_int_distribution<int>(2, 24)(random));
        const unsigned columns = i % 50 == 0 ? 2448u : unsigned(std::uniform_int_distribution<int>(2, 72)(random));
        const std::uint32_t bit_depth = std::uint32_t(std::uniform_int_distribution<int>(0, 16)(random));
        // Maxima below the sentinel, so a sentinel left behind is an unwritten pixel.
        const std::uint16_t output_maximum =
            bit_depth > 0 && bit_depth <= 15 && i % 2 == 0
                ? std::uint16_t((1u << bit_depth) - 1u)
                : std::uint16_t(std::uniform_int_distribution<int>(1, image_sentinel - 1)(random));
        const Slot_set slots = Slot_set(std::uniform_int_distribution<int>(1, 63)(random));
        const std::int32_t sensor_phase = std::uniform_int_distribution<int>(0, 3)(random);
        const std::int32_t origin_x = std::uniform_int_distribution<int>(-3, 3)(random);
        const std::int32_t origin_y = std::uniform_int_distribution<int>(-3, 3)(random);
        const Frame frame = random_frame(random, rows, columns, bit_depth, random_texture(random));
        if (i % 3 == 0)
            ASSERT_EQ(session.set_coefficients(random_angle_matrices(random, i % 6 == 0)), 0);
        else
            ASSERT_EQ(session.set_coefficients(default_angle_matrices()), 0);

        Transform_result result =
            run_transform(session, frame, slots, sensor_phase, origin_x, origin_y, bit_depth, output_maximum);
        ASSERT_EQ(result.status, 0);
        const std::int32_t phase = rebased_phase(sensor_phase, origin_x, origin_y);
        const std::string context = std::to_string(rows) + "x" + std::to_string(columns) + " phase " +
                                    std::to_string(phase) + " slots " + slot_set_name(slots) + " bit depth " +
                                    std::to_string(bit_depth) + " maximum " + std::to_string(output_maximum);
        const Comparison check = compare_outputs(
            with_reference_blocks(frame, result.outputs, phase, bit_depth, output_maximum), result.outputs, context);
        EXPECT_TRUE(check.equal) << check.report;

        unsigned unwritten = 0;
        for (unsigned r = 0; r < rows; ++r)
            for (unsigned c = 0; c < columns; ++c) {
                if (result.outputs.has(0))
                    unwritten += bits_of(result.outputs.normalized_at(r, c, 0)) == normalized_sentinel_bits;
                for (unsigned slot = 1; slot < 6; ++slot)
                    if (result.outputs.has(slot))
                        unwritten += result.outputs.image_at(slot, r, c) == image_sentinel;
            }
        EXPECT_EQ(unwritten, 0u) << context;
        if (!check.equal || unwritten != 0)
            break;
    }
}

TEST(SharedObject, CustomCoefficientsLeaveBlockPixelsAlone)
{
    REQUIRE_SSE41();
    Processor_session session;
    ASSERT_EQ(session.create_status(), 0);
    std::mt19937 random(516u);
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        const Frame frame = random_frame(random, 9, 37, 12, Texture::uniform);
        ASSERT_EQ(session.set_coefficients(default_angle_matrices()), 0);
        Transform_result with_defaults = run_transform(session, frame, all_slots, phase, 0, 0, 12, 4095);
        ASSERT_EQ(session.set_coefficients(random_angle_matrices(random, true)), 0);
        Transform_result with_custom = run_transform(session, frame, all_slots, phase, 0, 0, 12, 4095);
        ASSERT_EQ(with_defaults.status, 0);
        ASSERT_EQ(with_custom.status, 0);
        Frame_outputs only_block = with_custom.outputs;
        copy_block_pixels(with_defaults.outputs, only_block);
        const Comparison check = compare_outputs(only_block, with_custom.outputs, "block pixels, custom against default");
        EXPECT_TRUE(check.equal) << check.report;
    }
}

}  // namespace
