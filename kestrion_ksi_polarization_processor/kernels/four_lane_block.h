// The four-lane block stage of the sweep: four output columns on the two rows
// of a row pair at a time, with the default calibration fixed into its sums
// and differences. It takes no calibration matrix, so custom coefficients
// reach only the pixels of the scalar stages.
//
// The block exists in several instruction forms, which differ in how 16-bit
// elements become lanes, lanes become 16-bit elements, and how many blocks
// one vector holds:
// - Sse41_form loads eight elements per source row at once, and its fourth
//   lane repeats the third (the even lanes are w0, w2, w2, w2);
// - Baseline_form fetches single elements, and its fourth lane has its own
//   quartet (w0, w2, w2, w4);
// - the AVX2 extension's forms hold two or four neighbouring blocks per
//   vector, each block in exactly the lanes of Sse41_form.
// Every instruction beyond SSE2 in the library lives in the row-pair
// functions of Sse41_form, which only kernels chosen for processors with
// SSE4.1 call.
#pragma once

#include "kernels/lane_operations.h"
#include "kernels/polarization_computation_arguments.h"
#include "kernels/stokes_needs.h"

struct Baseline_form;
struct Sse41_form;

// Broadcast values prepared once per kernel call, each only where a present
// slot needs it. They are taken in four lanes, whatever the form's width, so
// that every width multiplies by the same estimates.
template <unsigned Width>
struct Block_constants {
    using L = typename Lane_vector<Width>::type;
    L half_estimate;           // estimate of 1/2, the factor of S0
    L max_float_lanes;         // output maximum, the limit of every 16-bit slot
    L input_reciprocal_lanes;  // estimate of 1 / input maximum, for rescaling
    L azimuth_scale;           // output maximum / 180
    L max_int_lanes;           // output maximum, for azimuth and DoLP
};
using Four_lane_constants = Block_constants<4>;

// The four-lane constants in every lane of a wider vector.
template <unsigned Width>
KSI_LANE_OPERATION Block_constants<Width> widened(const Four_lane_constants& c)
{
    using L = typename Lane_vector<Width>::type;
    return {widen_uniform(c.half_estimate, L{}), widen_uniform(c.max_float_lanes, L{}),
            widen_uniform(c.input_reciprocal_lanes, L{}), widen_uniform(c.azimuth_scale, L{}),
            widen_uniform(c.max_int_lanes, L{})};
}

// All blocks of the row pair at `row`: columns 0 to 4 x blocks - 1.
template <class Indices, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, class Form>
void generate_four_lane_row_pair(const Four_lane_constants& constants,
                                 const Polarization_computation_arguments& arguments, unsigned row, unsigned blocks);

template <class Indices, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, class Form>
class Four_lane_block_stage {
public:
    explicit Four_lane_block_stage(const Polarization_computation_arguments& arguments)
        : arguments(arguments), constants(prepare(arguments))
    {
    }

    // One less than the whole groups of four columns, so that the last block's
    // eight-element loads stay inside the row. Frames narrower than four
    // columns have no block.
    static unsigned block_count(unsigned columns) { return columns < 4 ? 0 : columns / 4 - 1; }

    void run_row_pair(unsigned row, unsigned blocks) const
    {
        if (blocks != 0)
            generate_four_lane_row_pair<Indices, Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2,
                                        Has_azimuth, Has_dolp, Form>(constants, arguments, row, blocks);
    }

private:
    static Four_lane_constants prepare(const Polarization_computation_arguments& arguments)
    {
        constexpr bool has_stokes_image = Has_s0 || Has_s1 || Has_s2;
        Four_lane_constants constants = {};
        if (Stokes_needs<Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp>::s0)
            constants.half_estimate = _mm_set1_ps(_mm_cvtss_f32(single_estimate(_mm_set_ss(2.0f))));
        if (has_stokes_image || Has_azimuth || Has_dolp)
            constants.max_float_lanes = _mm_set1_ps(arguments.output_maximum);
        if (!Native_scale && has_stokes_image)
            constants.input_reciprocal_lanes = estimate(_mm_set1_ps(arguments.input_maximum));
        const float output_maximum = float(arguments.output_maximum_integer);
        if (Has_azimuth)
            constants.azimuth_scale = _mm_set1_ps(output_maximum / 180.0f);
        if (Has_azimuth || Has_dolp)
            constants.max_int_lanes = _mm_set1_ps(output_maximum);
        return constants;
    }

    const Polarization_computation_arguments& arguments;
    const Four_lane_constants constants;
};
