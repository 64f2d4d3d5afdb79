// Whole frames through the exported transform, compared with the reference
// model pixel by pixel: random sizes, phases, origins, slot subsets, bit
// depths, output maxima and matrices (default and custom, non-finite entries
// included). Pixels of the four-lane block are left out of the comparison;
// every other pixel, every guard zone and every absent slot is checked.
#include "core_test_support.h"

namespace core_test {
namespace {

void check_every_small_size(std::int32_t sensor_phase, std::uint64_t seed)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(seed);
    const int per_size = scaled_iterations(30);
    std::size_t failures = 0;
    for (unsigned rows = 2; rows <= 20; ++rows) {
        for (unsigned columns = 2; columns <= 20; ++columns) {
            for (int i = 0; i < per_size; ++i) {
                const Frame_case frame = random_frame(rng, rows, columns, sensor_phase);
                failures += check_exported_frame(processor, frame, "seed " + std::to_string(seed));
                if (failures > 40)
                    FAIL() << "stopping after many mismatches";
            }
        }
    }
    EXPECT_EQ(failures, 0u);
}

TEST(ScalarFrames, EverySizeFrom2x2To20x20MatchesReferenceSensorPhase0) { check_every_small_size(0, 1001); }
TEST(ScalarFrames, EverySizeFrom2x2To20x20MatchesReferenceSensorPhase45) { check_every_small_size(1, 1002); }
TEST(ScalarFrames, EverySizeFrom2x2To20x20MatchesReferenceSensorPhase90) { check_every_small_size(2, 1003); }
TEST(ScalarFrames, EverySizeFrom2x2To20x20MatchesReferenceSensorPhase135) { check_every_small_size(3, 1004); }

void check_large_frame(unsigned columns, unsigned rows, std::uint64_t seed, int iterations)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(seed);
    for (int i = 0; i < scaled_iterations(iterations); ++i) {
        Frame_case frame = random_frame(rng, rows, columns, i % 4);
        if (i == 0)
            frame.slots = all_slots;
        EXPECT_EQ(check_exported_frame(processor, frame, "seed " + std::to_string(seed)), 0u);
    }
}

TEST(ScalarFrames, Frame640x480MatchesReference) { check_large_frame(640, 480, 2001, 10); }
TEST(ScalarFrames, Frame2448x64MatchesReference) { check_large_frame(2448, 64, 2002, 10); }
TEST(ScalarFrames, Frame1001x7MatchesReference) { check_large_frame(1001, 7, 2003, 24); }
TEST(ScalarFrames, Frame7x1001MatchesReference) { check_large_frame(7, 1001, 2004, 24); }
TEST(ScalarFrames, Frame3x999MatchesReference) { check_large_frame(3, 999, 2005, 24); }
TEST(ScalarFrames, Frame2x1000MatchesReference) { check_large_frame(2, 1000, 2006, 24); }
TEST(ScalarFrames, Frame4097x2MatchesReference) { check_large_frame(4097, 2, 2007, 24); }
TEST(ScalarFrames, Frame333x3MatchesReference) { check_large_frame(333, 3, 2008, 24); }
TEST(ScalarFrames, Frame65x33MatchesReference) { check_large_frame(65, 33, 2009, 60); }

TEST(ScalarFrames, EveryBitDepthWithNativeAndRescaledOutputMaxima)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(3001);
    for (std::uint32_t bit_depth = 0; bit_depth <= 16; ++bit_depth) {
        const std::uint32_t native = ksi_reference::input_maximum_integer(bit_depth);
        std::vector<std::uint16_t> maxima = {1, 2, 255, 256, 4095, 65534, 65535};
        if (native != 0)
            maxima.push_back(std::uint16_t(native));
        if (native > 1)
            maxima.push_back(std::uint16_t(native - 1));
        for (std::uint16_t output_maximum : maxima) {
            for (int i = 0; i < scaled_iterations(8); ++i) {
                Frame_case frame = random_frame(rng, 3 + unsigned(i), 5 + 2 * unsigned(i));
                frame.bit_depth = bit_depth;
                frame.output_maximum = output_maximum;
                frame.input = random_input(rng, frame.pixels(), bit_depth);
                frame.slots = i == 0 ? all_slots : frame.slots;
                EXPECT_EQ(check_exported_frame(processor, frame, "bit depth sweep"), 0u);
            }
        }
    }
}

TEST(ScalarFrames, MatricesWithNaNInfinityZeroSignsAndSubnormals)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(3002);
    for (int i = 0; i < scaled_iterations(10000); ++i) {
        Frame_case frame = random_frame(rng, 2 + unsigned(i % 9), 2 + unsigned((i / 9) % 9));
        frame.custom = true;
        for (auto& m : frame.by_polarizer)
            for (auto& entry : m)
                entry = random_matrix_entry(rng);
        frame.slots = all_slots;
        EXPECT_EQ(check_exported_frame(processor, frame, "non-finite matrices"), 0u);
    }
}

// Each slot holds the same values whichever other slots are requested.
TEST(ScalarFrames, EverySlotSubsetGivesTheSameValuesAsAllSlots)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(3003);
    for (int round = 0; round < scaled_iterations(8); ++round) {
        Frame_case frame = random_frame(rng, 5 + unsigned(round), 7 + unsigned(round));
        frame.slots = all_slots;
        ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
        Output_arena full(frame.pixels(), all_slots, 0xA5);
        ASSERT_EQ(transform_frame(processor.handle(), frame, full), status_success);
        for (unsigned slots = 1; slots <= 63; ++slots) {
            frame.slots = slots;
            EXPECT_EQ(check_exported_frame(processor, frame, "slot subset"), 0u);
            Output_arena part(frame.pixels(), slots, 0x5A);
            ASSERT_EQ(transform_frame(processor.handle(), frame, part), status_success);
            for (std::size_t i = 0; i < frame.pixels(); ++i) {
                for (int s = 0; s < 6; ++s) {
                    if (!(slots & slot_bit(s)))
                        continue;
                    if (s == 0) {
                        for (int e = 0; e < 2; ++e)
                            ASSERT_TRUE(ksi_reference::same_normalized(full.normalized_at(2 * i + e),
                                                                       part.normalized_at(2 * i + e)))
                                << "slots " << slot_list(slots) << " pixel " << i;
                    } else {
                        ASSERT_EQ(full.slot_at(s, i), part.slot_at(s, i))
                            << "slot " << s << " with slots " << slot_list(slots) << " pixel " << i;
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace core_test
