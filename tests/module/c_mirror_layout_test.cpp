// The C description of the extension interface in the public header must
// match the records the library hands over, field for field.

#include <cstddef>
#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "module/ksi_log_object.h"
#include "module/vector_polarization_processor_module.h"

namespace {

using Record = Polarization_computation_arguments;
using Mirror = kl_polarization_computation_arguments;

#define KSI_SAME_FIELD(internal, mirror, field)                                                          \
    static_assert(offsetof(internal, field) == offsetof(mirror, field), "offset of " #field);          \
    static_assert(sizeof(internal::field) == sizeof(mirror::field), "width of " #field);               \
    static_assert(std::is_pointer<decltype(internal::field)>::value ==                                    \
                      std::is_pointer<decltype(mirror::field)>::value,                                    \
                  "kind of " #field)

static_assert(sizeof(Record) == sizeof(Mirror), "record size");
static_assert(alignof(Record) == alignof(Mirror), "record alignment");
static_assert(std::is_standard_layout<Mirror>::value, "the mirror is a plain C struct");
KSI_SAME_FIELD(Record, Mirror, rows);
KSI_SAME_FIELD(Record, Mirror, columns);
KSI_SAME_FIELD(Record, Mirror, polar_phase);
KSI_SAME_FIELD(Record, Mirror, input);
KSI_SAME_FIELD(Record, Mirror, bit_depth);
KSI_SAME_FIELD(Record, Mirror, input_maximum);
KSI_SAME_FIELD(Record, Mirror, output_maximum);
KSI_SAME_FIELD(Record, Mirror, output_maximum_integer);
KSI_SAME_FIELD(Record, Mirror, normalized_stokes);
KSI_SAME_FIELD(Record, Mirror, s0_image);
KSI_SAME_FIELD(Record, Mirror, s1_image);
KSI_SAME_FIELD(Record, Mirror, s2_image);
KSI_SAME_FIELD(Record, Mirror, azimuth_image);
KSI_SAME_FIELD(Record, Mirror, dolp_image);
static_assert(std::is_same<decltype(Record::rows), decltype(Mirror::rows)>::value, "rows type");
static_assert(std::is_same<decltype(Record::polar_phase), decltype(Mirror::polar_phase)>::value, "phase type");
static_assert(std::is_same<decltype(Record::input_maximum), decltype(Mirror::input_maximum)>::value, "float type");
static_assert(std::is_same<decltype(Record::input), decltype(Mirror::input)>::value, "input type");
static_assert(std::is_same<decltype(Record::normalized_stokes), decltype(Mirror::normalized_stokes)>::value,
              "slot 0 type");
static_assert(std::is_same<decltype(Record::dolp_image), decltype(Mirror::dolp_image)>::value, "slot 5 type");

using Set = Calibration_matrices;
using Set_mirror = kl_calibration_matrices;

static_assert(sizeof(Set) == sizeof(Set_mirror), "matrix set size");
KSI_SAME_FIELD(Set, Set_mirror, even_row_even_column);
KSI_SAME_FIELD(Set, Set_mirror, even_row_odd_column);
KSI_SAME_FIELD(Set, Set_mirror, odd_row_even_column);
KSI_SAME_FIELD(Set, Set_mirror, odd_row_odd_column);
// What a matrix pointer points at has the same size and element layout.
static_assert(sizeof(Calibration_matrix) == sizeof(float[16]), "matrix size");
static_assert(sizeof(*Set_mirror{}.even_row_even_column) == sizeof(Calibration_matrix), "pointee size");

// The functions the loader calls without a record have the documented types.
static_assert(std::is_same<Vector_polarization_processor_module::Initialize_function,
                           kl_vector_avx2_module_initialize_function>::value,
              "initialise type");
static_assert(std::is_same<Vector_polarization_processor_module::Terminate_function,
                           kl_vector_avx2_module_terminate_function>::value,
              "terminate type");

static_assert(int(KL_KSI_LOG_PRIORITY_ERROR) == int(KSI_LOG_PRIORITY_ERROR), "error priority");
static_assert(int(KL_KSI_LOG_PRIORITY_TIMING) == int(KSI_LOG_PRIORITY_TIMING), "timing priority");

}  // namespace

TEST(CMirrorLayout, RecordFieldsLieAtTheSameOffsets)
{
    // The static assertions above already hold; these make the numbers
    // visible in the test output when they do not.
    EXPECT_EQ(sizeof(Mirror), 88u);
    EXPECT_EQ(offsetof(Mirror, input), offsetof(Record, input));
    EXPECT_EQ(offsetof(Mirror, output_maximum_integer), offsetof(Record, output_maximum_integer));
    EXPECT_EQ(offsetof(Mirror, dolp_image), offsetof(Record, dolp_image));
}

TEST(CMirrorLayout, MatrixSetFieldsLieAtTheSameOffsets)
{
    EXPECT_EQ(sizeof(Set_mirror), 32u);
    EXPECT_EQ(offsetof(Set_mirror, odd_row_odd_column), offsetof(Set, odd_row_odd_column));
}

TEST(CMirrorLayout, MirrorReadsWhatTheLibraryWrote)
{
    // The extension sees the library's record through the mirror.
    std::uint16_t input[4] = {};
    std::uint16_t image[4] = {};
    float normalized[8] = {};
    const Calibration_matrix matrix = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const Record record = {6, 8, 3, input, 12, 4095.0f, 1000.0f, 1000, normalized, image, nullptr, nullptr,
                           nullptr, nullptr};
    const Set set = {&matrix, nullptr, nullptr, &matrix};

    Mirror mirror;
    std::memcpy(&mirror, &record, sizeof mirror);
    EXPECT_EQ(mirror.rows, 6u);
    EXPECT_EQ(mirror.columns, 8u);
    EXPECT_EQ(mirror.polar_phase, 3);
    EXPECT_EQ(mirror.input, input);
    EXPECT_EQ(mirror.bit_depth, 12u);
    EXPECT_EQ(mirror.input_maximum, 4095.0f);
    EXPECT_EQ(mirror.output_maximum, 1000.0f);
    EXPECT_EQ(mirror.output_maximum_integer, 1000u);
    EXPECT_EQ(mirror.normalized_stokes, normalized);
    EXPECT_EQ(mirror.s0_image, image);
    EXPECT_EQ(mirror.dolp_image, nullptr);

    Set_mirror set_mirror;
    std::memcpy(&set_mirror, &set, sizeof set_mirror);
    ASSERT_NE(set_mirror.odd_row_odd_column, nullptr);
    EXPECT_EQ((*set_mirror.odd_row_odd_column)[15], 16.0f);
    EXPECT_EQ((*set_mirror.even_row_even_column)[4], 5.0f);
    EXPECT_EQ(set_mirror.even_row_odd_column, nullptr);
}
