// The dispatcher generate_polarization_output_data, driven with hand-built
// records: which scale it picks, how it treats phases outside 1 to 3, and
// that its scalar pixels agree with the reference and with the sweep without
// blocks.
#include <limits>

#include "core_internal_support.h"

namespace core_test {
namespace {

// Runs the dispatcher on a record built for the frame, then lets `edit`
// change the record before the call.
template <class Edit>
void run_dispatcher(const Frame_case& frame, Output_arena& arena, bool has_sse41, Edit edit)
{
    Polarization_computation_arguments record = record_for(frame, arena);
    edit(record);
    const Matrix_set positional = frame.positional();
    generate_polarization_output_data(record, matrix_set_for(positional), has_sse41);
}

void run_dispatcher(const Frame_case& frame, Output_arena& arena, bool has_sse41)
{
    run_dispatcher(frame, arena, has_sse41, [](Polarization_computation_arguments&) {});
}

// A flat frame whose S0 is `s0` at every pixel under one matrix for all.
Frame_case flat_s0_frame(unsigned rows, unsigned columns, float s0, std::uint32_t bit_depth,
                         std::uint16_t output_maximum)
{
    Frame_case frame;
    frame.rows = rows;
    frame.columns = columns;
    frame.bit_depth = bit_depth;
    frame.output_maximum = output_maximum;
    frame.slots = slot_bit(1);
    frame.custom = true;
    frame.by_polarizer = same_matrix_everywhere(matrix_rows({2.0f * s0, 0, 0, 0}, {}, {}));
    frame.input.assign(frame.pixels(), 1);
    return frame;
}

// With the record's float input maximum set to a false value, the scale
// the kernel picked shows: native leaves S0 alone, rescaled divides by the
// false value.
std::vector<std::uint16_t> slot1_with_input_maximum_field(const Frame_case& frame, float field, bool has_sse41,
                                                          bool scalar_only)
{
    Output_arena arena(frame.pixels(), frame.slots, 0xA5);
    Polarization_computation_arguments record = record_for(frame, arena);
    record.input_maximum = field;
    const Matrix_set positional = frame.positional();
    if (scalar_only)
        generate_polarization_output_data_scalar_only(record, matrix_set_for(positional));
    else
        generate_polarization_output_data(record, matrix_set_for(positional), has_sse41);
    std::vector<std::uint16_t> values;
    for (unsigned r = 0; r < frame.rows; ++r)
        for (unsigned c = 0; c < frame.columns; ++c)
            if (scalar_only || !ksi_reference::is_block_pixel(frame.rows, frame.columns, r, c))
                values.push_back(arena.slot_at(1, std::size_t(r) * frame.columns + c));
    return values;
}

void expect_scale(std::uint32_t bit_depth, std::uint16_t output_maximum, bool expect_native)
{
    // S0 = 100. Native: 100. Rescaled by a false input maximum of 1e6:
    // output maximum x 100 / 1e6, a small number well below 100.
    const Frame_case frame = flat_s0_frame(5, 10, 100, bit_depth, output_maximum);
    const std::uint16_t native_value = std::min<std::uint16_t>(100, output_maximum);
    const std::uint16_t rescaled_value =
        ksi_reference::clamp_and_round(float((long double)output_maximum * 100.0L / 1e6L), output_maximum);
    ASSERT_NE(native_value, rescaled_value);
    const std::uint16_t expected = expect_native ? native_value : rescaled_value;
    for (bool scalar_only : {false, true}) {
        for (bool sse41 : {false, true}) {
            for (std::uint16_t v : slot1_with_input_maximum_field(frame, 1e6f, sse41, scalar_only))
                ASSERT_EQ(v, expected) << "bit depth " << bit_depth << ", output maximum " << output_maximum
                                       << (scalar_only ? ", sweep without blocks" : ", dispatcher")
                                       << (sse41 ? ", SSE4.1" : "") << ": expected the "
                                       << (expect_native ? "native" : "rescaled") << " path";
        }
    }
}

TEST(Dispatch, NativeScaleIsDecidedFromTheIntegerMaximaNotTheFloatField)
{
    expect_scale(16, 65535, true);
    expect_scale(12, 4095, true);
    expect_scale(1, 1, true);
    expect_scale(12, 4094, false);
    expect_scale(12, 4096, false);
    expect_scale(16, 65534, false);
}

TEST(Dispatch, OutputMaximum255IsNativeAt8BitsAndNotAt12)
{
    expect_scale(8, 255, true);
    expect_scale(12, 255, false);
}

TEST(Dispatch, BitDepth0IsNeverNative)
{
    for (std::uint16_t output_maximum : {1, 2, 255, 4095, 65535})
        expect_scale(0, output_maximum, false);
}

TEST(Dispatch, BitDepth16WithOutputMaximum65535IsNative)
{
    expect_scale(16, 65535, true);
    Frame_case frame = flat_s0_frame(4, 6, 100, 16, 65535);
    Output_arena arena(frame.pixels(), frame.slots, 0xA5);
    const Polarization_computation_arguments record = record_for(frame, arena);
    EXPECT_EQ(record.input_maximum, 65535.0f);
}

// Any phase other than 1, 2, 3 takes phase 0's table: the whole frame,
// blocks included, equals the phase 0 frame bit for bit.
TEST(Dispatch, RecordPhasesOutside1To3TakeThePhase0Table)
{
    std::mt19937_64 rng(10001);
    for (unsigned columns : {8u, 13u, 16u, 26u}) {
        for (unsigned rows : {3u, 6u}) {
            Frame_case frame = random_frame(rng, rows, columns, 0);
            frame.slots = all_slots;
            frame.origin_x = frame.origin_y = 0;
            for (bool sse41 : {false, true}) {
                Output_arena phase_0(frame.pixels(), all_slots, 0xA5);
                run_dispatcher(frame, phase_0, sse41, [](Polarization_computation_arguments& r) { r.polar_phase = 0; });
                for (std::int32_t phase : {-1, -7, 4, 100, std::numeric_limits<std::int32_t>::min(),
                                           std::numeric_limits<std::int32_t>::max()}) {
                    Output_arena other(frame.pixels(), all_slots, 0x5A);
                    run_dispatcher(frame, other, sse41,
                                   [phase](Polarization_computation_arguments& r) { r.polar_phase = phase; });
                    for (std::size_t i = 0; i < frame.pixels(); ++i) {
                        for (int e = 0; e < 2; ++e)
                            ASSERT_EQ(ksi_reference::bits_of(phase_0.normalized_at(2 * i + e)),
                                      ksi_reference::bits_of(other.normalized_at(2 * i + e)))
                                << "phase " << phase << ", " << frame.describe() << ", pixel " << i;
                        for (int s = 1; s <= 5; ++s)
                            ASSERT_EQ(phase_0.slot_at(s, i), other.slot_at(s, i))
                                << "phase " << phase << ", slot " << s << ", " << frame.describe() << ", pixel " << i;
                    }
                }
            }
        }
    }
}

TEST(Dispatch, ScalarPixelsMatchTheReferenceWithAndWithoutSse41)
{
    std::mt19937_64 rng(10101);
    for (int i = 0; i < scaled_iterations(5000); ++i) {
        const Frame_case frame = random_frame(rng, 2 + unsigned(i % 19), 2 + unsigned((i * 7) % 37));
        for (bool sse41 : {false, true}) {
            Output_arena arena(frame.pixels(), frame.slots, sse41 ? 0xA5 : 0x5A);
            run_dispatcher(frame, arena, sse41);
            EXPECT_EQ(compare_with_reference(frame, arena, reference_outputs(frame), true,
                                             sse41 ? "dispatcher, SSE4.1" : "dispatcher, baseline"),
                      0u);
            check_untouched(arena, frame, "dispatcher");
        }
    }
}

// Rows come first in the record: a record for a tall frame and one for a
// wide frame differ only in which field holds which size.
TEST(Dispatch, TheRecordHoldsRowsBeforeColumns)
{
    std::mt19937_64 rng(10201);
    Frame_case frame = random_frame(rng, 9, 4);
    frame.slots = all_slots;
    Output_arena arena(frame.pixels(), all_slots, 0xA5);
    const Polarization_computation_arguments record = record_for(frame, arena);
    EXPECT_EQ(record.rows, 9u);
    EXPECT_EQ(record.columns, 4u);
    EXPECT_EQ(check_scalar_only_frame(frame, "tall"), 0u);
    run_dispatcher(frame, arena, true);
    EXPECT_EQ(compare_with_reference(frame, arena, reference_outputs(frame), true, "tall"), 0u);
}

// The kernels of a call with no slot exist and write nothing.
TEST(Dispatch, NoSlotPresentWritesNothing)
{
    std::mt19937_64 rng(10301);
    for (unsigned columns : {2u, 5u, 8u, 17u}) {
        Frame_case frame = random_frame(rng, 6, columns);
        frame.slots = 0;
        const std::vector<std::uint16_t> input_before = frame.input;
        for (bool sse41 : {false, true}) {
            Output_arena arena(frame.pixels(), 0, 0xA5);
            run_dispatcher(frame, arena, sse41);
            EXPECT_TRUE(check_untouched(arena, frame, "no slot"));
            Output_arena arena_scalar(frame.pixels(), 0, 0xA5);
            generate_polarization_output_data_scalar_only(record_for(frame, arena_scalar),
                                                          matrix_set_for(frame.positional()));
            EXPECT_TRUE(check_untouched(arena_scalar, frame, "no slot, sweep without blocks"));
        }
        EXPECT_EQ(frame.input, input_before);
    }
}

// The dispatcher and the sweep without blocks agree everywhere outside the
// block, with the same record and matrices.
TEST(Dispatch, AgreesWithTheSweepWithoutBlocksOutsideTheBlock)
{
    std::mt19937_64 rng(10401);
    for (int i = 0; i < scaled_iterations(600); ++i) {
        Frame_case frame = random_frame(rng, 3 + unsigned(i % 12), 8 + unsigned(i % 29));
        frame.slots = all_slots;
        Output_arena full(frame.pixels(), all_slots, 0xA5);
        run_dispatcher(frame, full, i % 2 == 0);
        Output_arena scalar(frame.pixels(), all_slots, 0x5A);
        generate_polarization_output_data_scalar_only(record_for(frame, scalar), matrix_set_for(frame.positional()));
        for (unsigned r = 0; r < frame.rows; ++r) {
            for (unsigned c = 0; c < frame.columns; ++c) {
                if (ksi_reference::is_block_pixel(frame.rows, frame.columns, r, c))
                    continue;
                const std::size_t p = std::size_t(r) * frame.columns + c;
                for (int e = 0; e < 2; ++e)
                    ASSERT_TRUE(ksi_reference::same_normalized(scalar.normalized_at(2 * p + e),
                                                               full.normalized_at(2 * p + e)))
                        << frame.describe() << " pixel (" << r << ", " << c << ")";
                for (int s = 1; s <= 5; ++s)
                    ASSERT_EQ(scalar.slot_at(s, p), full.slot_at(s, p))
                        << frame.describe() << " slot " << s << " pixel (" << r << ", " << c << ")";
            }
        }
    }
}

}  // namespace
}  // namespace core_test
