// The processor behind a handle, through the exported functions: default
// matrices, set and get (null matrices, overlap, values stored unchanged),
// and how set matrices reach the pixels of every phase.
#include <limits>

#include "core_test_support.h"

namespace core_test {
namespace {

// The defaults, written out: rows S0, S1, S2, unused; columns own,
// horizontal, vertical, diagonal.
const Matrix expected_default_0 = {1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0, 0};
const Matrix expected_default_45 = {1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1, 0, 0, 0, 0};
const Matrix expected_default_90 = {1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0, 0, 0, 0, 0};
const Matrix expected_default_135 = {1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1, 0, 0, 0, 0};

Matrix counting_matrix(float start)
{
    Matrix m;
    for (int i = 0; i < 16; ++i)
        m[i] = start + float(i);
    return m;
}

TEST(ProcessorObject, GetRightAfterCreateReturnsTheDefaultsWithZeroFourthRows)
{
    Module_session session;
    Processor processor;
    Matrix_set m;
    for (auto& matrix : m)
        matrix.fill(std::numeric_limits<float>::quiet_NaN());
    ASSERT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor.handle(), m[0].data(),
                                                                            m[1].data(), m[2].data(), m[3].data()),
              status_success);
    EXPECT_TRUE(same_bits(m[0], expected_default_0));
    EXPECT_TRUE(same_bits(m[1], expected_default_45));
    EXPECT_TRUE(same_bits(m[2], expected_default_90));
    EXPECT_TRUE(same_bits(m[3], expected_default_135));
    for (int p = 0; p < 4; ++p)
        for (int j = 12; j < 16; ++j)
            EXPECT_EQ(ksi_reference::bits_of(m[p][j]), 0u) << "matrix " << p << " element " << j;
}

TEST(ProcessorObject, SetWithFourNullMatricesSucceedsAndChangesNothing)
{
    Module_session session;
    Processor processor;
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), nullptr, nullptr,
                                                                            nullptr, nullptr),
              status_success);
    const Matrix_set defaults = processor.get();
    EXPECT_TRUE(same_bits(defaults[0], expected_default_0));
    EXPECT_TRUE(same_bits(defaults[3], expected_default_135));

    const Matrix_set custom = {counting_matrix(1), counting_matrix(100), counting_matrix(-50), counting_matrix(0.25f)};
    ASSERT_EQ(processor.set(custom), status_success);
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), nullptr, nullptr,
                                                                            nullptr, nullptr),
              status_success);
    const Matrix_set after = processor.get();
    for (int p = 0; p < 4; ++p)
        EXPECT_TRUE(same_bits(after[p], custom[p])) << "matrix " << p;
}

TEST(ProcessorObject, GetWithNullMatricesFillsOnlyTheOthers)
{
    Module_session session;
    Processor processor;
    Matrix m90;
    m90.fill(-7.0f);
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor.handle(), nullptr, nullptr,
                                                                            m90.data(), nullptr),
              status_success);
    EXPECT_TRUE(same_bits(m90, expected_default_90));
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor.handle(), nullptr, nullptr,
                                                                            nullptr, nullptr),
              status_success);
}

TEST(ProcessorObject, SetOfMatrix45AloneLeavesTheOtherThreeUnchanged)
{
    Module_session session;
    Processor processor;
    const Matrix custom = counting_matrix(3.5f);
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), nullptr,
                                                                            custom.data(), nullptr, nullptr),
              status_success);
    const Matrix_set m = processor.get();
    EXPECT_TRUE(same_bits(m[0], expected_default_0));
    EXPECT_TRUE(same_bits(m[1], custom));
    EXPECT_TRUE(same_bits(m[2], expected_default_90));
    EXPECT_TRUE(same_bits(m[3], expected_default_135));
}

// A 2x2 frame: each pixel uses the matrix of its own place. The 45 degree
// matrix weighs S0 differently, so the pixel that shows it is where the
// phase puts the 45 degree polarizer: phase 0 odd row even column, phase 1
// even row even column, phase 2 even row odd column, phase 3 odd row odd
// column.
TEST(ProcessorObject, SetOfMatrix45AloneReachesAllFourPhasesAtTheirParity)
{
    Module_session session;
    Processor processor;
    Matrix custom = expected_default_45;
    custom[0] = 2.0f;  // S0 = (2 + 1 + 1 + 1) x 100 / 2 = 250 instead of 200
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), nullptr,
                                                                            custom.data(), nullptr, nullptr),
              status_success);
    const std::size_t place_of_45[4] = {2, 0, 1, 3};  // index in the 2x2 frame
    const std::vector<std::uint16_t> input(4, 100);
    for (int phase = 0; phase < 4; ++phase) {
        std::vector<std::uint16_t> s0(4, 0);
        ASSERT_EQ(kl_polarization_processor_transform(processor.handle(), phase, input.data(), 0, 0, 2, 2, 16, 65535,
                                                      nullptr, s0.data(), nullptr, nullptr, nullptr, nullptr),
                  status_success);
        for (std::size_t i = 0; i < 4; ++i)
            EXPECT_EQ(s0[i], i == place_of_45[phase] ? 250 : 200) << "phase " << phase << " pixel " << i;
    }
    // Bigger frames: every pixel under the 45 degree polarizer (outside the
    // four-lane block) carries the custom weight.
    for (int phase = 0; phase < 4; ++phase) {
        const unsigned rows = 7, columns = 6;
        const std::vector<std::uint16_t> flat(rows * columns, 100);
        std::vector<std::uint16_t> s0(rows * columns, 0);
        ASSERT_EQ(kl_polarization_processor_transform(processor.handle(), phase, flat.data(), 0, 0, columns, rows, 16,
                                                      65535, nullptr, s0.data(), nullptr, nullptr, nullptr, nullptr),
                  status_success);
        for (unsigned r = 0; r < rows; ++r) {
            for (unsigned c = 0; c < columns; ++c) {
                const auto rule = ksi_reference::pixel_rule(rows, columns, r, c);
                const bool uses_45 = ksi_reference::polarizer_of_position(phase, rule.matrix) == 1;
                EXPECT_EQ(s0[r * columns + c], uses_45 ? 250 : 200)
                    << "phase " << phase << " pixel (" << r << ", " << c << ")";
            }
        }
    }
}

TEST(ProcessorObject, SetAndGetCopyAllSixteenFloatsUnchangedIncludingNonFiniteValues)
{
    Module_session session;
    Processor processor;
    Matrix odd_values = {std::numeric_limits<float>::quiet_NaN(),
                         -std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),
                         -0.0f,
                         std::numeric_limits<float>::denorm_min(),
                         -std::numeric_limits<float>::max(),
                         1e-30f,
                         ksi_reference::float_from_bits(0x7FA00001u),  // NaN with a payload
                         ksi_reference::float_from_bits(0xFFC12345u),
                         3.0f,
                         4.0f,
                         12.0f,
                         13.0f,
                         14.0f,
                         15.0f};
    const Matrix_set custom = {odd_values, counting_matrix(-8), counting_matrix(0.125f), counting_matrix(1e6f)};
    ASSERT_EQ(processor.set(custom), status_success);
    const Matrix_set read = processor.get();
    for (int p = 0; p < 4; ++p)
        EXPECT_TRUE(same_bits(read[p], custom[p])) << "matrix " << p;
}

TEST(ProcessorObject, GetIntoABufferThenSetFromThatSameBufferChangesNothing)
{
    Module_session session;
    Processor processor;
    const Matrix_set custom = {counting_matrix(1), counting_matrix(2), counting_matrix(3), counting_matrix(4)};
    ASSERT_EQ(processor.set(custom), status_success);
    float buffer[64];
    ASSERT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor.handle(), buffer, buffer + 16,
                                                                            buffer + 32, buffer + 48),
              status_success);
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), buffer, buffer + 16,
                                                                            buffer + 32, buffer + 48),
              status_success);
    const Matrix_set read = processor.get();
    for (int p = 0; p < 4; ++p)
        EXPECT_TRUE(same_bits(read[p], custom[p])) << "matrix " << p;
}

// Get copies the four matrices in argument order, so one buffer named four
// times ends with the 135 degree matrix; overlapping sources are read as
// they stand.
TEST(ProcessorObject, OverlappingArgumentsCopyInArgumentOrder)
{
    Module_session session;
    Processor processor;
    const Matrix_set custom = {counting_matrix(1), counting_matrix(2), counting_matrix(3), counting_matrix(4)};
    ASSERT_EQ(processor.set(custom), status_success);
    Matrix one;
    ASSERT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(processor.handle(), one.data(),
                                                                            one.data(), one.data(), one.data()),
              status_success);
    EXPECT_TRUE(same_bits(one, custom[3]));

    // Overlapping source windows into one array.
    float window[19];
    for (int i = 0; i < 19; ++i)
        window[i] = float(100 + i);
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), window, window + 1,
                                                                            window + 2, window + 3),
              status_success);
    const Matrix_set read = processor.get();
    for (int p = 0; p < 4; ++p)
        for (int i = 0; i < 16; ++i)
            EXPECT_EQ(read[p][i], float(100 + p + i)) << "matrix " << p << " element " << i;

    // Set from the same array for all four.
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(processor.handle(), one.data(),
                                                                            one.data(), one.data(), one.data()),
              status_success);
    const Matrix_set same = processor.get();
    for (int p = 0; p < 4; ++p)
        EXPECT_TRUE(same_bits(same[p], custom[3])) << "matrix " << p;
}

TEST(ProcessorObject, NullHandleGives4ForSetGetAndDestroy)
{
    Module_session session;
    Matrix m = counting_matrix(0);
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(nullptr, m.data(), m.data(), m.data(),
                                                                            m.data()),
              status_null_handle);
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(nullptr, m.data(), m.data(), m.data(),
                                                                            m.data()),
              status_null_handle);
    EXPECT_TRUE(same_bits(m, counting_matrix(0))) << "get with a null handle must not write";
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), status_null_handle);
}

TEST(ProcessorObject, CreateAndDestroySucceed)
{
    Module_session session;
    void* handles[8] = {};
    for (auto& handle : handles) {
        ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&handle), status_success);
        ASSERT_NE(handle, nullptr);
    }
    for (auto& handle : handles)
        EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(handle), status_success);
}

TEST(ProcessorObject, ProcessorsKeepTheirOwnMatrices)
{
    Module_session session;
    Processor first, second;
    const Matrix custom = counting_matrix(9);
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(first.handle(), custom.data(), nullptr,
                                                                            nullptr, nullptr),
              status_success);
    EXPECT_TRUE(same_bits(first.get()[0], custom));
    EXPECT_TRUE(same_bits(second.get()[0], expected_default_0));
}

// The fourth row is stored but no computation reads it.
TEST(ProcessorObject, TheFourthRowReachesNoOutput)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(7001);
    for (int i = 0; i < 6; ++i) {
        Frame_case frame = random_frame(rng, 3 + unsigned(i), 5 + unsigned(i));
        frame.slots = all_slots;
        ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
        Output_arena plain(frame.pixels(), all_slots, 0xA5);
        ASSERT_EQ(transform_frame(processor.handle(), frame, plain), status_success);

        Frame_case marked = frame;
        for (auto& m : marked.by_polarizer)
            for (int j = 12; j < 16; ++j)
                m[j] = j % 2 ? std::numeric_limits<float>::quiet_NaN() : 1e30f;
        ASSERT_EQ(processor.set(marked.by_polarizer), status_success);
        Output_arena with_row(frame.pixels(), all_slots, 0x5A);
        ASSERT_EQ(transform_frame(processor.handle(), marked, with_row), status_success);
        for (std::size_t p = 0; p < frame.pixels(); ++p) {
            for (int e = 0; e < 2; ++e)
                ASSERT_EQ(ksi_reference::bits_of(plain.normalized_at(2 * p + e)),
                          ksi_reference::bits_of(with_row.normalized_at(2 * p + e)))
                    << "pixel " << p;
            for (int s = 1; s <= 5; ++s)
                ASSERT_EQ(plain.slot_at(s, p), with_row.slot_at(s, p)) << "slot " << s << " pixel " << p;
        }
        EXPECT_EQ(check_exported_frame(processor, marked, "fourth row set"), 0u);
    }
}

// Set takes effect on the next transform, in every phase, since the phase
// sets name the processor's own four matrices.
TEST(ProcessorObject, ASecondSetReachesTheNextTransformInEveryPhase)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(7101);
    for (int phase = 0; phase < 4; ++phase) {
        for (int i = 0; i < 3; ++i) {
            Frame_case frame = random_frame(rng, 4, 7, phase);
            frame.custom = true;
            for (auto& m : frame.by_polarizer)
                m = random_matrix(rng);
            frame.slots = all_slots;
            EXPECT_EQ(check_exported_frame(processor, frame, "set then transform"), 0u);
        }
    }
}

}  // namespace
}  // namespace core_test
