#include "four_lane_reference.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include <xmmintrin.h>

namespace four_lane_reference {

namespace {

float from_bits(std::uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::uint32_t to_bits(float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Lane masks: all ones or all zeros.
constexpr std::uint32_t all_ones = 0xFFFFFFFFu;
std::uint32_t mask_of(bool condition) { return condition ? all_ones : 0u; }

float bit_and(float value, std::uint32_t mask) { return from_bits(to_bits(value) & mask); }
float bit_and_not(std::uint32_t mask, float value) { return from_bits(~mask & to_bits(value)); }
float bit_or(float value, std::uint32_t bits) { return from_bits(to_bits(value) | bits); }

constexpr std::uint32_t sign_bits = 0x80000000u;
const float pi = from_bits(0x40490FDBu);
const float half_pi = from_bits(0x3FC90FDBu);
const float cubic_coefficient = from_bits(0xBE448E01u);
const float linear_coefficient = from_bits(0x3F78EED2u);
const float angle_scale = from_bits(0x41E52EE0u);

// The polarizer angle, in degrees, over a pixel of the given row and column
// parity, for each phase: the quartet of the sensor read row by row.
int polarizer_angle(std::int32_t polar_phase, unsigned row_parity, unsigned column_parity)
{
    static const int mosaic[4][2][2] = {
        {{0, 135}, {45, 90}},
        {{45, 90}, {0, 135}},
        {{90, 45}, {135, 0}},
        {{135, 0}, {90, 45}},
    };
    const int phase = (polar_phase >= 1 && polar_phase <= 3) ? polar_phase : 0;
    return mosaic[phase][row_parity][column_parity];
}

// Index of the source vector that carries `angle` among the two source rows
// first_row_offset and first_row_offset + 1 (offsets from the block's row r,
// which is even). Vector 2k is the even lanes and 2k + 1 the odd lanes of row
// r + k.
unsigned vector_carrying(std::int32_t polar_phase, unsigned first_row_offset, int angle)
{
    for (unsigned k = first_row_offset; k <= first_row_offset + 1; ++k)
        for (unsigned column_parity = 0; column_parity < 2; ++column_parity)
            if (polarizer_angle(polar_phase, k % 2, column_parity) == angle)
                return 2 * k + column_parity;
    throw std::logic_error("the mosaic lacks an angle");
}

std::uint16_t read_input(const Polarization_computation_arguments& arguments, unsigned row, unsigned column)
{
    return arguments.input[std::size_t(row) * arguments.columns + column];
}

bool native_scale(const Polarization_computation_arguments& arguments)
{
    const std::uint32_t input_maximum = (std::uint32_t(1) << arguments.bit_depth) - 1u;
    return arguments.output_maximum_integer == input_maximum;
}

}  // namespace

const char* form_name(Block_form form) { return form == Block_form::sse41 ? "sse41" : "baseline"; }

float scalar_reciprocal_estimate(float value) { return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(value))); }

float lane_reciprocal_estimate(float value)
{
    // Put the value in every lane and read one back, so that the four-lane
    // instruction itself produces it.
    return _mm_cvtss_f32(_mm_rcp_ps(_mm_set1_ps(value)));
}

float half_estimate() { return scalar_reciprocal_estimate(2.0f); }

unsigned block_end(unsigned rows, unsigned columns)
{
    if (columns < 8 || rows <= 2)
        return 0;
    return 4 * (columns / 4 - 1);
}

unsigned block_row_end(unsigned rows, unsigned columns)
{
    if (block_end(rows, columns) == 0)
        return 0;
    // The last-rows stage starts at rows - 2 for an even row count and at
    // rows - 1 for an odd one; every even row above it heads a row pair.
    return (rows % 2 == 0) ? rows - 2 : rows - 1;
}

bool is_block_pixel(unsigned rows, unsigned columns, unsigned row, unsigned column)
{
    return row < block_row_end(rows, columns) && column < block_end(rows, columns);
}

std::array<unsigned, 16> phase_list(std::int32_t polar_phase)
{
    std::array<unsigned, 16> list{};
    for (unsigned lower = 0; lower < 2; ++lower) {
        // Upper row: source rows r and r + 1. Lower row: r + 1 and r + 2.
        const unsigned offset = lower;
        const unsigned at_0 = vector_carrying(polar_phase, offset, 0);
        const unsigned at_45 = vector_carrying(polar_phase, offset, 45);
        const unsigned at_90 = vector_carrying(polar_phase, offset, 90);
        const unsigned at_135 = vector_carrying(polar_phase, offset, 135);
        list[4 * lower + 0] = at_0;
        list[4 * lower + 1] = at_45;
        list[4 * lower + 2] = at_90;
        list[4 * lower + 3] = at_135;
        list[8 + 2 * lower] = at_0;  // S1: 0 degrees minus 90 degrees
        list[9 + 2 * lower] = at_90;
        list[12 + 2 * lower] = at_45;  // S2: 45 degrees minus 135 degrees
        list[13 + 2 * lower] = at_135;
    }
    return list;
}

Block_lanes stokes_lanes(const Polarization_computation_arguments& arguments, unsigned row, unsigned column,
                         Block_form form)
{
    // Source column offsets of each lane, from the block's first column.
    static const unsigned even_sse41[4] = {0, 2, 2, 2};
    static const unsigned even_baseline[4] = {0, 2, 2, 4};
    static const unsigned odd[4] = {1, 1, 3, 3};
    const unsigned* even = form == Block_form::sse41 ? even_sse41 : even_baseline;

    float vectors[6][4];
    for (unsigned k = 0; k < 3; ++k)
        for (unsigned lane = 0; lane < 4; ++lane) {
            vectors[2 * k][lane] = float(read_input(arguments, row + k, column + even[lane]));
            vectors[2 * k + 1][lane] = float(read_input(arguments, row + k, column + odd[lane]));
        }

    const std::array<unsigned, 16> list = phase_list(arguments.polar_phase);
    const float half = half_estimate();
    Block_lanes lanes{};
    for (unsigned lower = 0; lower < 2; ++lower)
        for (unsigned lane = 0; lane < 4; ++lane) {
            const unsigned* sum = &list[4 * lower];
            const float total = (vectors[sum[0]][lane] + vectors[sum[1]][lane]) +
                                (vectors[sum[2]][lane] + vectors[sum[3]][lane]);
            lanes.s0[lower][lane] = total * half;
            lanes.s1[lower][lane] = vectors[list[8 + 2 * lower]][lane] - vectors[list[9 + 2 * lower]][lane];
            lanes.s2[lower][lane] = vectors[list[12 + 2 * lower]][lane] - vectors[list[13 + 2 * lower]][lane];
        }
    return lanes;
}

std::uint16_t store_lane(float value, float output_maximum)
{
    // Minimum first, with the value as first operand: a not-a-number fails
    // the comparison and becomes the limit. Then the maximum with zero.
    float v = value < output_maximum ? value : output_maximum;
    v = v > 0.0f ? v : 0.0f;
    // Round to nearest, ties to even, under the current rounding mode.
    return std::uint16_t(std::lrint(v));
}

float fast_arctangent(float value)
{
    float result = value * value;
    result = result * cubic_coefficient;
    result = result + linear_coefficient;
    return value * result;
}

float lane_arctangent2(float x, float y)
{
    const std::uint32_t x_nonzero = mask_of(!(x == 0.0f));
    const float abs_x = from_bits(to_bits(x) & ~sign_bits);
    const float abs_y = from_bits(to_bits(y) & ~sign_bits);
    const std::uint32_t y_smaller = mask_of(abs_y < abs_x);
    const std::uint32_t x_positive = mask_of(0.0f < x);
    const std::uint32_t y_not_negative = mask_of(0.0f <= y);
    const std::uint32_t y_positive = mask_of(0.0f < y);
    const std::uint32_t y_zero = mask_of(y == 0.0f);

    const float t = lane_reciprocal_estimate(x) * y;
    const float u = lane_reciprocal_estimate(t);
    const float a = fast_arctangent(t);
    const float b = fast_arctangent(u);

    const float signed_pi = bit_or(pi, ~y_not_negative & sign_bits);
    const float first_offset = bit_and_not(x_positive, signed_pi);
    const float first_arm = first_offset + a;

    const float signed_half_pi = bit_or(half_pi, ~y_positive & sign_bits);
    const float second_arm = (0.0f - b) + signed_half_pi;

    const float either_arm = bit_and(first_arm, y_smaller) + bit_and_not(y_smaller, second_arm);
    const float column_case = bit_and_not(y_zero, signed_half_pi);
    return bit_and(either_arm, x_nonzero) + bit_and_not(x_nonzero, column_case);
}

float azimuth_before_store(float s1, float s2, std::uint32_t output_maximum_integer)
{
    const float maximum = float(output_maximum_integer);
    const float azimuth_scale = maximum / 180.0f;
    float v = lane_arctangent2(s1, s2) * angle_scale;
    v = v + 90.0f;
    v = v * azimuth_scale;
    v = v < maximum ? v : maximum;
    v = v > 0.0f ? v : 0.0f;
    return v;
}

float dolp_before_store(float s0, float s1, float s2, std::uint32_t output_maximum_integer)
{
    const std::uint32_t s0_zero = mask_of(s0 == 0.0f);
    const float e = lane_reciprocal_estimate(s0);
    const float m = std::sqrt(s1 * s1 + s2 * s2);
    float d = m * e;
    d = bit_and_not(s0_zero, d);
    return d * float(output_maximum_integer);
}

void write_block_pixels(const Polarization_computation_arguments& arguments, Block_form form)
{
    const unsigned rows = arguments.rows;
    const unsigned columns = arguments.columns;
    const unsigned end_column = block_end(rows, columns);
    const unsigned end_row = block_row_end(rows, columns);
    const bool native = native_scale(arguments);
    const float output_maximum = arguments.output_maximum;
    const float input_reciprocal = lane_reciprocal_estimate(arguments.input_maximum);
    const auto rescaled = [&](float v) { return native ? v : (v * output_maximum) * input_reciprocal; };

    for (unsigned row = 0; row < end_row; row += 2)
        for (unsigned column = 0; column < end_column; column += 4) {
            const Block_lanes lanes = stokes_lanes(arguments, row, column, form);
            for (unsigned lower = 0; lower < 2; ++lower)
                for (unsigned lane = 0; lane < 4; ++lane) {
                    const std::size_t pixel = std::size_t(row + lower) * columns + column + lane;
                    const float s0 = lanes.s0[lower][lane];
                    const float s1 = lanes.s1[lower][lane];
                    const float s2 = lanes.s2[lower][lane];
                    if (arguments.normalized_stokes != nullptr) {
                        arguments.normalized_stokes[2 * pixel] = s1 / s0;
                        arguments.normalized_stokes[2 * pixel + 1] = s2 / s0;
                    }
                    if (arguments.s0_image != nullptr)
                        arguments.s0_image[pixel] = store_lane(rescaled(s0), output_maximum);
                    if (arguments.s1_image != nullptr)
                        arguments.s1_image[pixel] = store_lane(rescaled(s1), output_maximum);
                    if (arguments.s2_image != nullptr)
                        arguments.s2_image[pixel] = store_lane(rescaled(s2), output_maximum);
                    if (arguments.azimuth_image != nullptr)
                        arguments.azimuth_image[pixel] = store_lane(
                            azimuth_before_store(s1, s2, arguments.output_maximum_integer), output_maximum);
                    if (arguments.dolp_image != nullptr)
                        arguments.dolp_image[pixel] = store_lane(
                            dolp_before_store(s0, s1, s2, arguments.output_maximum_integer), output_maximum);
                }
        }
}

}  // namespace four_lane_reference
