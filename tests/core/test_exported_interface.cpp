// The exported C functions: return codes, the order of the transform's
// checks, signed and unsigned comparisons, and the re-basing of the phase by
// the parity of the region's origin.
#include <limits>

#include "core_test_support.h"

namespace core_test {
namespace {

constexpr std::int32_t int_min = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t int_max = std::numeric_limits<std::int32_t>::max();

// Arguments of one transform call, valid by default, so that each test
// breaks exactly what it names. Outputs are held by slot.
struct Transform_call {
    void* processor = nullptr;
    std::int32_t polar_phase = 0;
    const std::uint16_t* input = nullptr;
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    std::int32_t width = 4;
    std::int32_t height = 4;
    std::uint32_t bit_depth = 12;
    std::uint16_t output_maximum = 4095;
    void* output[6] = {};

    int operator()() const
    {
        return kl_polarization_processor_transform(
            processor, polar_phase, input, origin_x, origin_y, width, height, bit_depth, output_maximum,
            static_cast<float*>(output[0]), static_cast<std::uint16_t*>(output[1]),
            static_cast<std::uint16_t*>(output[2]), static_cast<std::uint16_t*>(output[3]),
            static_cast<std::uint16_t*>(output[4]), static_cast<std::uint16_t*>(output[5]));
    }
};

void* as_output(const std::uint16_t* pointer) { return const_cast<std::uint16_t*>(pointer); }

// Buffers big enough for every frame these tests pass.
struct Buffers {
    static constexpr std::size_t pixels = 64;
    std::vector<std::uint16_t> input = std::vector<std::uint16_t>(pixels, 100);
    std::vector<float> normalized = std::vector<float>(2 * pixels);
    std::vector<std::uint16_t> slot[6] = {{}, std::vector<std::uint16_t>(pixels), std::vector<std::uint16_t>(pixels),
                                          std::vector<std::uint16_t>(pixels), std::vector<std::uint16_t>(pixels),
                                          std::vector<std::uint16_t>(pixels)};

    Transform_call valid_call(void* processor)
    {
        Transform_call call;
        call.processor = processor;
        call.input = input.data();
        call.output[0] = normalized.data();
        for (int s = 1; s < 6; ++s)
            call.output[s] = slot[s].data();
        return call;
    }
};

TEST(ExportedInterface, ValidCallSucceeds)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    EXPECT_EQ(buffers.valid_call(processor.handle())(), status_success);
}

TEST(ExportedInterface, ReturnCodesHaveTheirFixedNumbers)
{
    EXPECT_EQ(status_success, 0);
    EXPECT_EQ(status_failure, 1);
    EXPECT_EQ(status_module_not_initialized, 2);
    EXPECT_EQ(status_out_of_memory, 3);
    EXPECT_EQ(status_null_handle, 4);
    EXPECT_EQ(status_null_input, 5);
    EXPECT_EQ(status_no_output, 6);
    EXPECT_EQ(status_output_is_input, 7);
    EXPECT_EQ(status_duplicate_output, 8);
    EXPECT_EQ(status_invalid_phase, 9);
    EXPECT_EQ(status_zero_output_maximum, 10);
    EXPECT_EQ(status_invalid_width, 11);
    EXPECT_EQ(status_invalid_height, 12);
    EXPECT_EQ(status_invalid_bit_depth, 13);
    EXPECT_EQ(polar_phase_0, 0);
    EXPECT_EQ(polar_phase_45, 1);
    EXPECT_EQ(polar_phase_90, 2);
    EXPECT_EQ(polar_phase_135, 3);
}

// Starting from a call that is wrong in every checked argument, each fix
// exposes the next check in the documented order.
TEST(ExportedInterface, ChecksRunInTheirFixedOrder)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call;  // null handle, null input, no outputs
    call.polar_phase = 4;
    call.width = 1;
    call.height = 1;
    call.output_maximum = 0;
    call.bit_depth = 17;

    EXPECT_EQ(call(), status_null_handle);
    call.processor = processor.handle();
    EXPECT_EQ(call(), status_invalid_phase);
    call.polar_phase = 3;
    EXPECT_EQ(call(), status_null_input);
    call.input = buffers.input.data();
    EXPECT_EQ(call(), status_no_output);
    call.output[1] = as_output(call.input);
    call.output[2] = call.output[1];
    EXPECT_EQ(call(), status_output_is_input);
    call.output[1] = buffers.slot[1].data();
    call.output[2] = call.output[1];
    EXPECT_EQ(call(), status_duplicate_output);
    call.output[2] = buffers.slot[2].data();
    EXPECT_EQ(call(), status_invalid_width);
    call.width = 2;
    EXPECT_EQ(call(), status_invalid_height);
    call.height = 2;
    EXPECT_EQ(call(), status_zero_output_maximum);
    call.output_maximum = 1;
    EXPECT_EQ(call(), status_invalid_bit_depth);
    call.bit_depth = 16;
    EXPECT_EQ(call(), status_success);
}

TEST(ExportedInterface, NullHandlePhase4AndNullInputGive4ThenAValidHandleGives9)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(nullptr);
    call.polar_phase = 4;
    call.input = nullptr;
    EXPECT_EQ(call(), status_null_handle);
    call.processor = processor.handle();
    EXPECT_EQ(call(), status_invalid_phase);
}

TEST(ExportedInterface, Phase4WithNullInputGives9Not5)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.polar_phase = 4;
    call.input = nullptr;
    EXPECT_EQ(call(), status_invalid_phase);
}

TEST(ExportedInterface, PhaseIsComparedSigned)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    for (std::int32_t phase : {4, 5, 100, int_max})
        EXPECT_EQ((call.polar_phase = phase, call()), status_invalid_phase) << "phase " << phase;
    for (std::int32_t phase : {3, 2, 1, 0, -1, -4, int_min})
        EXPECT_EQ((call.polar_phase = phase, call()), status_success) << "phase " << phase;
}

TEST(ExportedInterface, Width1AndOutputMaximum0Give11Not10)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.width = 1;
    call.output_maximum = 0;
    EXPECT_EQ(call(), status_invalid_width);
}

TEST(ExportedInterface, Height0AndBitDepth17Give12Not13)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.height = 0;
    call.bit_depth = 17;
    EXPECT_EQ(call(), status_invalid_height);
}

TEST(ExportedInterface, HeightIsCheckedBeforeOutputMaximum)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.height = 1;
    call.output_maximum = 0;
    EXPECT_EQ(call(), status_invalid_height);
}

TEST(ExportedInterface, OutputMaximum0IsCheckedBeforeBitDepth)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.output_maximum = 0;
    call.bit_depth = 17;
    EXPECT_EQ(call(), status_zero_output_maximum);
}

TEST(ExportedInterface, WidthAndHeightAreComparedSigned)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    for (std::int32_t width : {1, 0, -1, -2, int_min})
        EXPECT_EQ((call.width = width, call()), status_invalid_width) << "width " << width;
    call.width = 2;
    for (std::int32_t height : {1, 0, -1, -2, int_min})
        EXPECT_EQ((call.height = height, call()), status_invalid_height) << "height " << height;
    call.height = 2;
    EXPECT_EQ(call(), status_success);
}

TEST(ExportedInterface, BitDepthIsComparedUnsigned)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    for (std::uint32_t bit_depth : {17u, 32u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ((call.bit_depth = bit_depth, call()), status_invalid_bit_depth) << "bit depth " << bit_depth;
    for (std::uint32_t bit_depth = 0; bit_depth <= 16; ++bit_depth)
        EXPECT_EQ((call.bit_depth = bit_depth, call()), status_success) << "bit depth " << bit_depth;
}

TEST(ExportedInterface, BitDepth0IsAccepted)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.bit_depth = 0;
    EXPECT_EQ(call(), status_success);
}

TEST(ExportedInterface, Slot5EqualToSlot0Gives8)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.output[5] = call.output[0];
    EXPECT_EQ(call(), status_duplicate_output);
}

TEST(ExportedInterface, Slot2EqualToInputWithSlots0And1NullGives7)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.output[0] = nullptr;
    call.output[1] = nullptr;
    call.output[2] = as_output(call.input);
    EXPECT_EQ(call(), status_output_is_input);
}

TEST(ExportedInterface, InputEqualToSlot0WhileSlot1EqualsSlot2Gives7)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.output[0] = as_output(call.input);
    call.output[2] = call.output[1];
    EXPECT_EQ(call(), status_output_is_input);
}

TEST(ExportedInterface, EachOfTheSixOutputsEqualToInputGives7)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    for (int slot = 0; slot < 6; ++slot) {
        Transform_call call = buffers.valid_call(processor.handle());
        call.output[slot] = as_output(call.input);
        EXPECT_EQ(call(), status_output_is_input) << "slot " << slot;
        // Also when it is the only output.
        for (int other = 0; other < 6; ++other)
            if (other != slot)
                call.output[other] = nullptr;
        EXPECT_EQ(call(), status_output_is_input) << "slot " << slot << " alone";
    }
}

TEST(ExportedInterface, EachOfTheFifteenDuplicatePairsGives8)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    for (int a = 0; a < 6; ++a) {
        for (int b = a + 1; b < 6; ++b) {
            Transform_call call = buffers.valid_call(processor.handle());
            call.output[b] = call.output[a];
            EXPECT_EQ(call(), status_duplicate_output) << "slots " << a << " and " << b;
            for (int other = 0; other < 6; ++other)
                if (other != a && other != b)
                    call.output[other] = nullptr;
            EXPECT_EQ(call(), status_duplicate_output) << "slots " << a << " and " << b << " alone";
        }
    }
}

TEST(ExportedInterface, NullOutputsAreNeitherDuplicatesNorInput)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    for (int slot = 0; slot < 6; ++slot) {
        Transform_call call = buffers.valid_call(processor.handle());
        for (int other = 0; other < 6; ++other)
            if (other != slot)
                call.output[other] = nullptr;
        EXPECT_EQ(call(), status_success) << "only slot " << slot;
    }
}

TEST(ExportedInterface, AllSixOutputsNullGives6)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    for (int slot = 0; slot < 6; ++slot)
        call.output[slot] = nullptr;
    EXPECT_EQ(call(), status_no_output);
}

TEST(ExportedInterface, NullInputGives5)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    Transform_call call = buffers.valid_call(processor.handle());
    call.input = nullptr;
    EXPECT_EQ(call(), status_null_input);
    // All outputs null as well: the input is tested first.
    for (int slot = 0; slot < 6; ++slot)
        call.output[slot] = nullptr;
    EXPECT_EQ(call(), status_null_input);
}

TEST(ExportedInterface, RefusedTransformsWriteNoOutput)
{
    Module_session session;
    Processor processor;
    Buffers buffers;
    for (auto& s : buffers.slot)
        std::fill(s.begin(), s.end(), 0xA5A5);
    Transform_call call = buffers.valid_call(processor.handle());
    call.width = 1;
    EXPECT_EQ(call(), status_invalid_width);
    call.width = 4;
    call.output_maximum = 0;
    EXPECT_EQ(call(), status_zero_output_maximum);
    call.output_maximum = 4095;
    call.bit_depth = 20;
    EXPECT_EQ(call(), status_invalid_bit_depth);
    for (int s = 1; s <= 5; ++s)
        for (std::uint16_t value : buffers.slot[s])
            ASSERT_EQ(value, 0xA5A5) << "slot " << s;
}

TEST(ExportedInterface, FramesOf2And3ColumnsAreAcceptedAtAnyHeight)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(5001);
    for (unsigned columns : {2u, 3u}) {
        for (unsigned rows = 2; rows <= 40; ++rows) {
            Frame_case frame = random_frame(rng, rows, columns);
            frame.slots = all_slots;
            EXPECT_EQ(check_exported_frame(processor, frame, "narrow frame"), 0u);
        }
    }
}

// ---------------------------------------------------------------------------
// Phase re-basing, seen through the matrix that the region's top left pixel
// uses: each polarizer's matrix gives S0 a different weight.

class Phase_probe {
public:
    explicit Phase_probe(const Processor& processor) : processor_(processor)
    {
        Matrix_set marked;
        for (int polarizer = 0; polarizer < 4; ++polarizer)
            marked[polarizer] = matrix_rows({2.0f * float(polarizer + 1), 0, 0, 0}, {}, {});
        EXPECT_EQ(processor.set(marked), status_success);
    }

    // Phase of the region: the polarizer at its top left.
    int region_phase(std::int32_t sensor_phase, std::int32_t origin_x, std::int32_t origin_y) const
    {
        const std::vector<std::uint16_t> input(4, 10);
        std::vector<std::uint16_t> s0(4, 0);
        const int status =
            kl_polarization_processor_transform(processor_.handle(), sensor_phase, input.data(), origin_x, origin_y,
                                                2, 2, 16, 65535, nullptr, s0.data(), nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(status, status_success);
        // S0 = weight x 10 at the top left pixel: 10, 20, 30 or 40.
        return s0[0] / 10 - 1;
    }

private:
    const Processor& processor_;
};

TEST(PhaseRebasing, Origin3_2RebasesPhase1To2)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    EXPECT_EQ(probe.region_phase(1, 3, 2), 2);
}

TEST(PhaseRebasing, OriginMinus3_2RebasesPhase1To3)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    EXPECT_EQ(probe.region_phase(1, -3, 2), 3);
}

TEST(PhaseRebasing, TheFourColumnsOfTheTable)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    // Old phase -> no change, odd x only, odd y only, both.
    const int table[4][4] = {{0, 3, 1, 2}, {1, 2, 0, 3}, {2, 1, 3, 0}, {3, 0, 2, 1}};
    for (int phase = 0; phase < 4; ++phase) {
        EXPECT_EQ(probe.region_phase(phase, 0, 0), table[phase][0]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, 10, -4), table[phase][0]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, 1, 0), table[phase][1]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, 7, 2), table[phase][1]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, 0, 1), table[phase][2]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, -2, 5), table[phase][2]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, 1, 1), table[phase][3]) << "phase " << phase;
        EXPECT_EQ(probe.region_phase(phase, 3, -5), table[phase][3]) << "phase " << phase;
    }
}

// A negative odd coordinate has remainder -1 and always takes "both", even
// when the other coordinate is even.
TEST(PhaseRebasing, NegativeOddCoordinatesTakeBoth)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    const int both[4] = {2, 3, 0, 1};
    for (int phase = 0; phase < 4; ++phase) {
        EXPECT_EQ(probe.region_phase(phase, -1, 0), both[phase]) << "phase " << phase << " origin (-1, 0)";
        EXPECT_EQ(probe.region_phase(phase, 0, -1), both[phase]) << "phase " << phase << " origin (0, -1)";
        EXPECT_EQ(probe.region_phase(phase, -1, -1), both[phase]) << "phase " << phase << " origin (-1, -1)";
        EXPECT_EQ(probe.region_phase(phase, 1, -1), both[phase]) << "phase " << phase << " origin (1, -1)";
        EXPECT_EQ(probe.region_phase(phase, -1, 1), both[phase]) << "phase " << phase << " origin (-1, 1)";
        EXPECT_EQ(probe.region_phase(phase, int_max - 2, int_min + 1), both[phase]) << "phase " << phase;
    }
    // Positive odd coordinates keep their own columns.
    EXPECT_EQ(probe.region_phase(0, 1, 0), 3);
    EXPECT_EQ(probe.region_phase(0, 0, 1), 1);
}

TEST(PhaseRebasing, ExtremeOriginsUseTheTruncatingRemainder)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    // int_min is even, int_max odd, int_min + 1 odd with remainder -1.
    EXPECT_EQ(probe.region_phase(1, int_min, int_min), 1);
    EXPECT_EQ(probe.region_phase(1, int_max, int_min), 2);
    EXPECT_EQ(probe.region_phase(1, int_min, int_max), 0);
    EXPECT_EQ(probe.region_phase(1, int_max, int_max), 3);
    EXPECT_EQ(probe.region_phase(1, int_min + 1, int_min), 3);
}

TEST(PhaseRebasing, EveryPhaseAndOriginMatchesTheReferenceRule)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    for (std::int32_t phase : {-7, -1, 0, 1, 2, 3}) {
        for (std::int32_t x = -5; x <= 5; ++x) {
            for (std::int32_t y = -5; y <= 5; ++y) {
                EXPECT_EQ(probe.region_phase(phase, x, y),
                          ksi_reference::effective_phase(ksi_reference::rebase_phase(phase, x, y)))
                    << "phase " << phase << " origin (" << x << ", " << y << ")";
            }
        }
    }
}

// A negative phase passes validation; at an even origin it stays negative and
// every stage treats it as phase 0; at any other origin it re-bases as 0.
TEST(PhaseRebasing, PhaseMinus1BehavesAsPhase0)
{
    Module_session session;
    Processor processor;
    Phase_probe probe(processor);
    EXPECT_EQ(probe.region_phase(-1, 0, 0), 0);
    EXPECT_EQ(probe.region_phase(int_min, 0, 0), 0);
    const std::int32_t origins[][2] = {{0, 0}, {2, 4}, {1, 0}, {0, 1}, {1, 1}, {-1, 0}, {0, -1}, {-3, -3}};
    for (const auto& origin : origins) {
        for (std::int32_t phase : {-1, -2, int_min})
            EXPECT_EQ(probe.region_phase(phase, origin[0], origin[1]), probe.region_phase(0, origin[0], origin[1]))
                << "phase " << phase << " origin (" << origin[0] << ", " << origin[1] << ")";
    }
}

// The whole frame, default matrices and the four-lane block included, is the
// same for phase -1 as for phase 0.
TEST(PhaseRebasing, PhaseMinus1GivesThePhase0FrameInEveryPixel)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(5101);
    for (unsigned columns : {6u, 9u, 16u, 21u}) {
        for (unsigned rows : {2u, 5u, 8u}) {
            Frame_case frame = random_frame(rng, rows, columns, 0);
            frame.by_polarizer = default_matrices();
            frame.custom = false;
            frame.origin_x = frame.origin_y = 0;
            frame.slots = all_slots;
            ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
            Output_arena phase_0(frame.pixels(), all_slots, 0xA5);
            ASSERT_EQ(transform_frame(processor.handle(), frame, phase_0), status_success);
            for (std::int32_t phase : {-1, int_min}) {
                frame.sensor_phase = phase;
                Output_arena negative(frame.pixels(), all_slots, 0x5A);
                ASSERT_EQ(transform_frame(processor.handle(), frame, negative), status_success);
                for (std::size_t i = 0; i < frame.pixels(); ++i) {
                    for (int e = 0; e < 2; ++e)
                        ASSERT_TRUE(ksi_reference::same_normalized(phase_0.normalized_at(2 * i + e),
                                                                   negative.normalized_at(2 * i + e)))
                            << frame.describe() << " pixel " << i;
                    for (int s = 1; s <= 5; ++s)
                        ASSERT_EQ(phase_0.slot_at(s, i), negative.slot_at(s, i))
                            << frame.describe() << " slot " << s << " pixel " << i;
                }
            }
            frame.sensor_phase = -1;
            EXPECT_EQ(check_exported_frame(processor, frame, "phase -1"), 0u);
        }
    }
}

}  // namespace
}  // namespace core_test
