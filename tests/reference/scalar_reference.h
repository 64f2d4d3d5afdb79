// Plain reference model of the polarization transform, for tests.
//
// Written for clarity rather than speed and kept apart from the library: it
// includes no library header and shares no code with it. One pixel is
// evaluated from its quartet and one 4x4 matrix; a whole frame is evaluated
// by a per-pixel rule that says which matrix and which neighbours each pixel
// uses when every pixel is written by the scalar stages.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ksi_reference {

using Matrix = std::array<float, 16>;

// Polarizers, in the order of the matrix arguments of set and get.
enum Polarizer : int { polarizer_0 = 0, polarizer_45 = 1, polarizer_90 = 2, polarizer_135 = 3 };

// The default coefficients of a freshly created processor, by polarizer.
Matrix default_matrix(int polarizer);

// The processor's single-precision reciprocal estimate (RCPSS), unrefined.
float reciprocal_estimate(float x);

// The single-precision constants of the azimuth, built from their bits.
float float_from_bits(std::uint32_t bits);
std::uint32_t bits_of(float value);
float angle_scale();  // 0x41E52EE0

// Minimum with the output maximum first (a NaN lands on the maximum), then
// maximum with 0, then round to nearest even.
std::uint16_t clamp_and_round(float value, float output_maximum);

// The odd cubic x * (c1 + c3 * x * x), evaluated square, times c3, plus c1,
// times x.
float fast_arctangent(float x);

// Angle in radians chosen by masks exactly as the scalar and four-lane
// evaluations do: both arms always computed, rejected values cleared bit by
// bit.
float masked_angle(float s1, float s2);

std::uint16_t azimuth_element(float s1, float s2, float output_maximum);
std::uint16_t dolp_element(float s0, float s1, float s2, float output_maximum);

// Input maximum as an integer, (1 << bit_depth) - 1.
std::uint32_t input_maximum_integer(std::uint32_t bit_depth);
bool native_scale(std::uint32_t bit_depth, std::uint16_t output_maximum);

struct Pixel_outputs {
    float normalized[2];  // slot 0
    std::uint16_t slot[6];  // slots 1 to 5 at index 1 to 5; index 0 unused
    // Intermediates, for diagnostics.
    long double s0_wide, s1_wide, s2_wide;
    float s0, s1, s2;
};

// One pixel from its quartet (own, horizontal, vertical, diagonal).
Pixel_outputs evaluate_pixel(const Matrix& matrix, const std::uint16_t quartet[4], std::uint32_t bit_depth,
                             std::uint16_t output_maximum);

// Phase of the region's first pixel from the sensor phase and the origin.
std::int32_t rebase_phase(std::int32_t sensor_phase, std::int32_t origin_x, std::int32_t origin_y);

// Any phase other than 1, 2, 3 is phase 0.
int effective_phase(std::int32_t phase);

// Polarizer covering the region pixel at row parity / column parity, from
// the mosaic of each phase.
int polarizer_at(std::int32_t phase, unsigned row, unsigned column);

// Matrix position k (0 even/even, 1 even/odd, 2 odd/even, 3 odd/odd) to the
// polarizer whose matrix a processor hands the kernels for that phase.
int polarizer_of_position(std::int32_t phase, int position);

// Which matrix position and which neighbours a pixel uses when the scalar
// stages write it.
struct Pixel_rule {
    int matrix;  // position 0..3 in the phase's set
    bool look_left;
    bool look_up;
};
Pixel_rule pixel_rule(unsigned rows, unsigned columns, unsigned row, unsigned column);
std::string describe(const Pixel_rule& rule);  // e.g. "2 R U"

// Pixels that the four-lane block writes in the exported transform: on every
// row pair, columns 0 .. 4 * (columns / 4 - 1) - 1, for frames of at least
// 8 columns and more than 2 rows.
bool is_block_pixel(unsigned rows, unsigned columns, unsigned row, unsigned column);

// The quartet of a pixel: positions of own, horizontal, vertical, diagonal.
struct Quartet_positions {
    unsigned row[4];
    unsigned column[4];
};
Quartet_positions quartet_positions(const Pixel_rule& rule, unsigned row, unsigned column);

// A whole frame. matrices[k] is the matrix at position k.
struct Frame_request {
    unsigned rows = 0;
    unsigned columns = 0;
    const std::uint16_t* input = nullptr;
    std::uint32_t bit_depth = 0;
    std::uint16_t output_maximum = 0;
    std::array<Matrix, 4> matrices{};
};

struct Frame_outputs {
    std::vector<float> normalized;  // 2 per pixel
    std::vector<std::uint16_t> slot[6];  // index 1 to 5
};

Frame_outputs evaluate_frame(const Frame_request& request);

// The positional matrices a processor with these per-polarizer matrices
// hands the kernels in the given (re-based) phase.
std::array<Matrix, 4> matrices_for_phase(const std::array<Matrix, 4>& by_polarizer, std::int32_t phase);

// Slot 0 comparison: bitwise, except that any NaN equals any NaN.
bool same_normalized(float expected, float actual);

}  // namespace ksi_reference
