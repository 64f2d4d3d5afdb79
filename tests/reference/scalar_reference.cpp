// Reference model of the polarization transform. See scalar_reference.h.
//
// Must be compiled with -ffp-contract=off: every single-precision product and
// sum below is meant as one rounded IEEE operation, never a fused one.
#include "scalar_reference.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

#include <xmmintrin.h>

namespace ksi_reference {

namespace {

// Wide precision: the x87 extended format, 64-bit significand.
using wide = long double;
static_assert(sizeof(wide) >= 10, "long double must be the x87 extended format");

constexpr std::uint32_t sign_bit = 0x80000000u;
constexpr std::uint32_t all_ones = 0xFFFFFFFFu;

std::uint32_t mask_of(bool condition) { return condition ? all_ones : 0u; }

float c1() { return float_from_bits(0x3F78EED2u); }
float c3() { return float_from_bits(0xBE448E01u); }
std::uint32_t pi_bits() { return 0x40490FDBu; }
std::uint32_t half_pi_bits() { return 0x3FC90FDBu; }

float clear_sign(float value) { return float_from_bits(bits_of(value) & ~sign_bit); }

}  // namespace

Matrix default_matrix(int polarizer)
{
    // Rows S0, S1, S2, unused; columns own, horizontal, vertical, diagonal.
    switch (polarizer) {
    case polarizer_0:
        return {1, 1, 1, 1, /**/ 1, 0, 0, -1, /**/ 0, -1, 1, 0, /**/ 0, 0, 0, 0};
    case polarizer_45:
        return {1, 1, 1, 1, /**/ 0, -1, 1, 0, /**/ 1, 0, 0, -1, /**/ 0, 0, 0, 0};
    case polarizer_90:
        return {1, 1, 1, 1, /**/ -1, 0, 0, 1, /**/ 0, 1, -1, 0, /**/ 0, 0, 0, 0};
    case polarizer_135:
        return {1, 1, 1, 1, /**/ 0, 1, -1, 0, /**/ -1, 0, 0, 1, /**/ 0, 0, 0, 0};
    }
    throw std::invalid_argument("no such polarizer");
}

float reciprocal_estimate(float x) { return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(x))); }

float float_from_bits(std::uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::uint32_t bits_of(float value)
{
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

float angle_scale() { return float_from_bits(0x41E52EE0u); }

std::uint16_t clamp_and_round(float value, float output_maximum)
{
    const float limited_above = value < output_maximum ? value : output_maximum;
    const float limited = limited_above > 0.0f ? limited_above : 0.0f;
    return static_cast<std::uint16_t>(std::lrint(limited));
}

float fast_arctangent(float x)
{
    const float square = x * x;
    const float cubic_term = c3() * square;
    const float sum = c1() + cubic_term;
    return x * sum;
}

float masked_angle(float s1, float s2)
{
    const float x = s1;
    const float y = s2;

    const std::uint32_t x_nonzero = mask_of(x != 0.0f);  // true for NaN
    const std::uint32_t y_smaller = mask_of(clear_sign(y) < clear_sign(x));
    const std::uint32_t x_positive = mask_of(0.0f < x);
    const std::uint32_t y_not_negative = mask_of(0.0f <= y);
    const std::uint32_t y_positive = mask_of(0.0f < y);
    const std::uint32_t y_zero = mask_of(y == 0.0f);

    const float t = reciprocal_estimate(x) * y;
    const float u = reciprocal_estimate(t);
    const float a = fast_arctangent(t);
    const float b = fast_arctangent(u);

    // First arm: P(t) plus 0, +pi or -pi.
    const std::uint32_t signed_pi = pi_bits() | (sign_bit & ~y_not_negative);
    const float offset_1 = float_from_bits(~x_positive & signed_pi);
    const float r1 = offset_1 + a;

    // Second arm: (0 - P(u)) plus or minus pi/2.
    const std::uint32_t signed_half_pi = half_pi_bits() | (sign_bit & ~y_positive);
    const float r2 = (0.0f - b) + float_from_bits(signed_half_pi);

    const float r = float_from_bits(bits_of(r1) & y_smaller) + float_from_bits(bits_of(r2) & ~y_smaller);

    // S1 = 0: +pi/2, -pi/2, or 0 when S2 is 0 as well.
    const float r3 = float_from_bits(signed_half_pi & ~y_zero);

    return float_from_bits(bits_of(r) & x_nonzero) + float_from_bits(bits_of(r3) & ~x_nonzero);
}

std::uint16_t azimuth_element(float s1, float s2, float output_maximum)
{
    const float theta = masked_angle(s1, s2);
    const float degrees = theta * angle_scale();
    const wide scaled = ((wide(degrees) + wide(90)) * wide(output_maximum)) / wide(180);
    return clamp_and_round(float(scaled), output_maximum);
}

std::uint16_t dolp_element(float s0, float s1, float s2, float output_maximum)
{
    const float s1_square = s1 * s1;
    const float s2_square = s2 * s2;
    const float q = s1_square + s2_square;
    const float w = std::sqrt(q);
    float e = w * reciprocal_estimate(s0);
    if (s0 == 0.0f)
        e = 0.0f;
    const float scaled = e * output_maximum;
    return clamp_and_round(scaled, output_maximum);
}

std::uint32_t input_maximum_integer(std::uint32_t bit_depth) { return (std::uint32_t(1) << bit_depth) - 1u; }

bool native_scale(std::uint32_t bit_depth, std::uint16_t output_maximum)
{
    return std::uint32_t(output_maximum) == input_maximum_integer(bit_depth);
}

Pixel_outputs evaluate_pixel(const Matrix& m, const std::uint16_t quartet[4], std::uint32_t bit_depth,
                             std::uint16_t output_maximum_integer)
{
    const wide p0 = quartet[0];
    const wide p1 = quartet[1];
    const wide p2 = quartet[2];
    const wide p3 = quartet[3];

    Pixel_outputs out{};
    out.s0_wide = wide(0.5) * (((wide(m[0]) * p0 + wide(m[1]) * p1) + wide(m[2]) * p2) + wide(m[3]) * p3);
    out.s1_wide = ((wide(m[4]) * p0 + wide(m[5]) * p1) + wide(m[6]) * p2) + wide(m[7]) * p3;
    out.s2_wide = ((wide(m[8]) * p0 + wide(m[9]) * p1) + wide(m[10]) * p2) + wide(m[11]) * p3;
    out.s0 = float(out.s0_wide);
    out.s1 = float(out.s1_wide);
    out.s2 = float(out.s2_wide);

    out.normalized[0] = float(out.s1_wide / out.s0_wide);
    out.normalized[1] = float(out.s2_wide / out.s0_wide);

    const float output_maximum = float(output_maximum_integer);
    const float input_maximum = float(input_maximum_integer(bit_depth));
    const wide sums[3] = {out.s0_wide, out.s1_wide, out.s2_wide};
    for (int i = 0; i < 3; ++i) {
        float value;
        if (native_scale(bit_depth, output_maximum_integer))
            value = float(sums[i]);
        else
            value = float((wide(output_maximum) * sums[i]) / wide(input_maximum));
        out.slot[1 + i] = clamp_and_round(value, output_maximum);
    }
    out.slot[4] = azimuth_element(out.s1, out.s2, output_maximum);
    out.slot[5] = dolp_element(out.s0, out.s1, out.s2, output_maximum);
    return out;
}

std::int32_t rebase_phase(std::int32_t sensor_phase, std::int32_t origin_x, std::int32_t origin_y)
{
    // Remainders truncate toward zero: -1, 0 or 1.
    const std::int32_t rx = origin_x % 2;
    const std::int32_t ry = origin_y % 2;
    enum Column { no_change = 0, odd_x_only = 1, odd_y_only = 2, both = 3 };
    Column column;
    if (rx == 0 && ry == 0)
        column = no_change;
    else if (rx == 1 && ry == 0)
        column = odd_x_only;
    else if (rx == 0 && ry == 1)
        column = odd_y_only;
    else
        column = both;
    if (column == no_change)
        return sensor_phase;

    static const std::int32_t table[4][4] = {
        // no change, odd x only, odd y only, both
        {0, 3, 1, 2},  // old phase 0
        {1, 2, 0, 3},  // old phase 1
        {2, 1, 3, 0},  // old phase 2
        {3, 0, 2, 1},  // old phase 3
    };
    return table[effective_phase(sensor_phase)][column];
}

int effective_phase(std::int32_t phase) { return phase == 1 || phase == 2 || phase == 3 ? int(phase) : 0; }

int polarizer_at(std::int32_t phase, unsigned row, unsigned column)
{
    // Angles of top left, top right, bottom left, bottom right.
    static const int mosaic[4][4] = {
        {0, 135, 45, 90},
        {45, 90, 0, 135},
        {90, 45, 135, 0},
        {135, 0, 90, 45},
    };
    const int angle = mosaic[effective_phase(phase)][2 * (row % 2) + column % 2];
    return angle / 45;
}

int polarizer_of_position(std::int32_t phase, int position)
{
    return polarizer_at(phase, unsigned(position) / 2, unsigned(position) % 2);
}

Pixel_rule pixel_rule(unsigned rows, unsigned columns, unsigned row, unsigned column)
{
    if (rows < 2 || columns < 2 || row >= rows || column >= columns)
        throw std::invalid_argument("pixel outside the frame");

    const bool even_rows = rows % 2 == 0;
    const bool even_columns = columns % 2 == 0;
    const unsigned first_last_row = even_rows ? rows - 2 : rows - 1;
    const bool last_column = column == columns - 1;
    // The matrix of the pixel's own place in the 2x2 group.
    const int own_place = int(2 * (row % 2) + column % 2);

    if (row < first_last_row) {
        // Row pairs: right and below everywhere, except the last column,
        // which looks left; the matrix always that of the pixel's place.
        return {own_place, last_column, false};
    }

    if (even_rows) {
        const bool lower = row == rows - 1;  // looks up into the row above
        if (!last_column)
            return {own_place, false, lower};
        // Last column: its own place with an even column count; with an odd
        // count matrix 0 on both rows (the lower one would be 2 by place).
        return {even_columns ? own_place : 0, true, lower};
    }

    // Single last row of an odd frame: looks up.
    if (!last_column)
        return {own_place, false, true};
    // Corner: matrix 0, even when the column is odd.
    return {0, true, true};
}

std::string describe(const Pixel_rule& rule)
{
    std::string text = std::to_string(rule.matrix);
    text += rule.look_left ? " L" : " R";
    text += rule.look_up ? " U" : " D";
    return text;
}

bool is_block_pixel(unsigned rows, unsigned columns, unsigned row, unsigned column)
{
    if (columns < 8 || rows <= 2)
        return false;
    const unsigned first_last_row = rows % 2 == 0 ? rows - 2 : rows - 1;
    if (row >= first_last_row)
        return false;
    const unsigned block_end = 4 * (columns / 4 - 1);
    return column < block_end;
}

Quartet_positions quartet_positions(const Pixel_rule& rule, unsigned row, unsigned column)
{
    const unsigned h = rule.look_left ? column - 1 : column + 1;
    const unsigned v = rule.look_up ? row - 1 : row + 1;
    Quartet_positions q;
    q.row[0] = row;
    q.column[0] = column;
    q.row[1] = row;
    q.column[1] = h;
    q.row[2] = v;
    q.column[2] = column;
    q.row[3] = v;
    q.column[3] = h;
    return q;
}

Frame_outputs evaluate_frame(const Frame_request& request)
{
    const unsigned rows = request.rows;
    const unsigned columns = request.columns;
    const std::size_t pixels = std::size_t(rows) * columns;
    Frame_outputs out;
    out.normalized.resize(2 * pixels);
    for (int s = 1; s <= 5; ++s)
        out.slot[s].resize(pixels);

    for (unsigned r = 0; r < rows; ++r) {
        for (unsigned c = 0; c < columns; ++c) {
            const Pixel_rule rule = pixel_rule(rows, columns, r, c);
            const Quartet_positions q = quartet_positions(rule, r, c);
            std::uint16_t quartet[4];
            for (int i = 0; i < 4; ++i)
                quartet[i] = request.input[std::size_t(q.row[i]) * columns + q.column[i]];
            const Pixel_outputs p =
                evaluate_pixel(request.matrices[rule.matrix], quartet, request.bit_depth, request.output_maximum);
            const std::size_t index = std::size_t(r) * columns + c;
            out.normalized[2 * index] = p.normalized[0];
            out.normalized[2 * index + 1] = p.normalized[1];
            for (int s = 1; s <= 5; ++s)
                out.slot[s][index] = p.slot[s];
        }
    }
    return out;
}

std::array<Matrix, 4> matrices_for_phase(const std::array<Matrix, 4>& by_polarizer, std::int32_t phase)
{
    std::array<Matrix, 4> result;
    for (int k = 0; k < 4; ++k)
        result[k] = by_polarizer[polarizer_of_position(phase, k)];
    return result;
}

bool same_normalized(float expected, float actual)
{
    if (std::isnan(expected) && std::isnan(actual))
        return true;
    return bits_of(expected) == bits_of(actual);
}

}  // namespace ksi_reference
