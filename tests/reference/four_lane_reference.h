// A plain, lane-by-lane model of the four-lane interior block, written for the
// tests. It shares no code with the library: every lane is a loop iteration
// in ordinary single-precision C++, the phase tables are derived from the
// polarizer mosaic, and the processor's reciprocal estimates are taken at run
// time through the estimate instructions themselves, so the model follows
// whatever processor (or emulator) it runs on.
//
// It writes the pixels that the block owns and nothing else; the other pixels
// of a frame are the business of the scalar stages.
#pragma once

#include <array>
#include <cstdint>

#include "kernels/polarization_computation_arguments.h"

namespace four_lane_reference {

// The two ways the block widens its source elements. The SSE4.1 form repeats
// w2 in the fourth even lane (so column c + 3 repeats column c + 2); the
// baseline form takes w4 there.
enum class Block_form { sse41, baseline };

const char* form_name(Block_form form);

// The processor's reciprocal estimates, unrefined: the scalar form (used for
// the factor of S0) and one lane of the four-lane form (used everywhere else).
float scalar_reciprocal_estimate(float value);
float lane_reciprocal_estimate(float value);

// The factor of S0 in the block: the scalar estimate of 1/2.
float half_estimate();

// Geometry of the block stage. block_end is the first column that no block
// writes (0 when the frame has no block); block_row_end is the first row that
// no block writes (0 when the frame has no block).
unsigned block_end(unsigned rows, unsigned columns);
unsigned block_row_end(unsigned rows, unsigned columns);
bool is_block_pixel(unsigned rows, unsigned columns, unsigned row, unsigned column);

// The sixteen positions i1..i16 of the phase list, derived from the mosaic.
// Any phase other than 1, 2 and 3 is phase 0.
std::array<unsigned, 16> phase_list(std::int32_t polar_phase);

// The unscaled lanes of one block at (row, column): index 0 is the upper row,
// 1 the lower row.
struct Block_lanes {
    float s0[2][4];
    float s1[2][4];
    float s2[2][4];
};

Block_lanes stokes_lanes(const Polarization_computation_arguments& arguments, unsigned row, unsigned column,
                         Block_form form);

// Single-lane pieces of the derived outputs, exposed so that tests can reason
// about single values.
std::uint16_t store_lane(float value, float output_maximum);
float lane_arctangent2(float x, float y);
float azimuth_before_store(float s1, float s2, std::uint32_t output_maximum_integer);
float dolp_before_store(float s0, float s1, float s2, std::uint32_t output_maximum_integer);
float fast_arctangent(float value);

// Writes every block pixel of every present slot of the record. Elements of
// the slots outside the block are left as they are.
void write_block_pixels(const Polarization_computation_arguments& arguments, Block_form form);

}  // namespace four_lane_reference
