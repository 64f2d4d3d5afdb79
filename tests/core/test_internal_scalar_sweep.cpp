// The sweep without four-lane blocks, driven directly with a hand-built record
// and matrix set: every pixel of every present slot is compared with the
// reference model, and guard zones and absent slots must stay untouched.
#include "core_internal_support.h"

namespace core_test {
namespace {

TEST(ScalarOnlySweep, EverySizeFrom2x2To20x20MatchesReferenceAtEveryPixel)
{
    std::mt19937_64 rng(4001);
    std::size_t failures = 0;
    for (unsigned rows = 2; rows <= 20; ++rows) {
        for (unsigned columns = 2; columns <= 20; ++columns) {
            for (int i = 0; i < scaled_iterations(30); ++i) {
                const Frame_case frame = random_frame(rng, rows, columns);
                failures += check_scalar_only_frame(frame, "scalar-only sweep, seed 4001");
                if (failures > 40)
                    FAIL() << "stopping after many mismatches";
            }
        }
    }
    EXPECT_EQ(failures, 0u);
}

void check_large_scalar_only(unsigned columns, unsigned rows, std::uint64_t seed, int iterations)
{
    std::mt19937_64 rng(seed);
    for (int i = 0; i < scaled_iterations(iterations); ++i) {
        Frame_case frame = random_frame(rng, rows, columns);
        if (i == 0)
            frame.slots = all_slots;
        EXPECT_EQ(check_scalar_only_frame(frame, "scalar-only sweep, seed " + std::to_string(seed)), 0u);
    }
}

TEST(ScalarOnlySweep, Frame640x480MatchesReferenceAtEveryPixel) { check_large_scalar_only(640, 480, 4101, 8); }
TEST(ScalarOnlySweep, Frame2448x64MatchesReferenceAtEveryPixel) { check_large_scalar_only(2448, 64, 4102, 8); }
TEST(ScalarOnlySweep, Frame1001x7MatchesReferenceAtEveryPixel) { check_large_scalar_only(1001, 7, 4103, 24); }
TEST(ScalarOnlySweep, Frame7x1001MatchesReferenceAtEveryPixel) { check_large_scalar_only(7, 1001, 4104, 24); }
TEST(ScalarOnlySweep, Frame3x777And777x3MatchReferenceAtEveryPixel)
{
    check_large_scalar_only(3, 777, 4105, 4);
    check_large_scalar_only(777, 3, 4106, 4);
}

TEST(ScalarOnlySweep, EveryBitDepthWithNativeAndRescaledOutputMaxima)
{
    std::mt19937_64 rng(4201);
    for (std::uint32_t bit_depth = 0; bit_depth <= 16; ++bit_depth) {
        const std::uint32_t native = ksi_reference::input_maximum_integer(bit_depth);
        std::vector<std::uint16_t> maxima = {1, 3, 255, 4095, 65535};
        if (native != 0)
            maxima.push_back(std::uint16_t(native));
        for (std::uint16_t output_maximum : maxima) {
            for (int i = 0; i < scaled_iterations(8); ++i) {
                Frame_case frame = random_frame(rng, 4 + unsigned(i), 9 + unsigned(i));
                frame.bit_depth = bit_depth;
                frame.output_maximum = output_maximum;
                frame.input = random_input(rng, frame.pixels(), bit_depth);
                EXPECT_EQ(check_scalar_only_frame(frame, "scalar-only bit depth sweep"), 0u);
            }
        }
    }
}

TEST(ScalarOnlySweep, MatricesWithNaNInfinityZeroSignsAndSubnormals)
{
    std::mt19937_64 rng(4301);
    for (int i = 0; i < scaled_iterations(10000); ++i) {
        Frame_case frame = random_frame(rng, 2 + unsigned(i % 11), 2 + unsigned((i / 11) % 11));
        frame.custom = true;
        for (auto& m : frame.by_polarizer)
            for (auto& entry : m)
                entry = random_matrix_entry(rng);
        frame.slots = all_slots;
        EXPECT_EQ(check_scalar_only_frame(frame, "scalar-only, non-finite matrices"), 0u);
    }
}

// With custom matrices every pixel of a wide frame depends on them: nothing
// in this sweep uses fixed coefficients.
TEST(ScalarOnlySweep, CustomMatricesReachEveryPixelOfAWideFrame)
{
    std::mt19937_64 rng(4401);
    Frame_case frame = random_frame(rng, 6, 24, 0);
    frame.origin_x = frame.origin_y = 0;
    frame.bit_depth = 12;
    frame.output_maximum = 4095;
    frame.slots = slot_bit(1);
    frame.input.assign(frame.pixels(), 1000);
    frame.custom = true;
    // S0 weights summing to 3 instead of 4: S0 = 1500 in place of 2000.
    for (auto& m : frame.by_polarizer) {
        m = ksi_reference::default_matrix(0);
        m[3] = 0;
    }
    Output_arena arena(frame.pixels(), frame.slots, 0xA5);
    const auto record = record_for(frame, arena);
    const Matrix_set positional = frame.positional();
    generate_polarization_output_data_scalar_only(record, matrix_set_for(positional));
    for (std::size_t i = 0; i < frame.pixels(); ++i)
        ASSERT_EQ(arena.slot_at(1, i), 1500) << "pixel " << i;
}

// The same frame, poisoned differently, gives the same output: every pixel
// of every present slot is written, whatever the buffers held.
TEST(ScalarOnlySweep, EveryPixelIsWrittenWhateverTheBuffersHeld)
{
    std::mt19937_64 rng(4501);
    for (unsigned rows = 2; rows <= 9; ++rows) {
        for (unsigned columns = 2; columns <= 13; ++columns) {
            Frame_case frame = random_frame(rng, rows, columns);
            frame.slots = all_slots;
            for (unsigned char fill : {0xA5, 0x5A, 0xFF, 0x00})
                EXPECT_EQ(check_scalar_only_frame(frame, "fill " + std::to_string(fill), fill), 0u);
        }
    }
}

}  // namespace
}  // namespace core_test
