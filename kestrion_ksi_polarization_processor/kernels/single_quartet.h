// Scalar evaluation of every requested output for one pixel, from the pixel
// and the three others that complete a 2x2 quartet around it, weighed by one
// calibration matrix. It serves the pixels that the four-lane block does not
// reach, and it is the reference for what each output means.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "kernels/lane_operations.h"
#include "kernels/polarization_computation_arguments.h"
#include "kernels/stokes_needs.h"

// Sums and products run in x87 extended precision, a 64-bit significand, and
// are rounded to single precision only where a value leaves the sums.
using Wide = long double;
static_assert(std::numeric_limits<Wide>::digits == 64, "the quartet sums need a 64-bit significand");

// Minimum with the output maximum first, so that a not-a-number lands on the
// maximum; then maximum with 0; then round to nearest under the current mode.
KSI_LANE_OPERATION std::uint16_t clamp_and_round(float value, float output_maximum)
{
    Lanes v = _mm_min_ss(_mm_set_ss(value), _mm_set_ss(output_maximum));
    v = _mm_max_ss(v, _mm_setzero_ps());
    return std::uint16_t(_mm_cvtss_si32(v));
}

// Kept out of line: the scalar stages evaluate few pixels per frame, and one
// body per flag set keeps the family small and quick to build.
template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp, bool Look_left, bool Look_up>
__attribute__((noinline)) void generate_polarization_output_data_for_single_quartet(
    unsigned row, unsigned column, const Calibration_matrix& m, const Polarization_computation_arguments& arguments,
    Image_buffer_overlays& overlays)
{
    using Needs = Stokes_needs<Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp>;

    const unsigned horizontal = Look_left ? column - 1 : column + 1;
    const unsigned vertical = Look_up ? row - 1 : row + 1;
    const Image_overlay& input = overlays.input;
    const Wide own = *input.element(row, column);
    const Wide horizontal_pixel = *input.element(row, horizontal);
    const Wide vertical_pixel = *input.element(vertical, column);
    const Wide diagonal_pixel = *input.element(vertical, horizontal);

    const auto weighted_sum = [&](int matrix_row) {
        const float* w = m.data() + 4 * matrix_row;
        return ((Wide(w[0]) * own + Wide(w[1]) * horizontal_pixel) + Wide(w[2]) * vertical_pixel) +
               Wide(w[3]) * diagonal_pixel;
    };
    const Wide s0_wide = Needs::s0 ? Wide(0.5L) * weighted_sum(0) : 0;
    const Wide s1_wide = Needs::s1 ? weighted_sum(1) : 0;
    const Wide s2_wide = Needs::s2 ? weighted_sum(2) : 0;
    const float s0 = float(s0_wide);
    const float s1 = float(s1_wide);
    const float s2 = float(s2_wide);

    const float output_maximum = arguments.output_maximum;
    // Slots 1 to 3 in output units: output maximum times the unrounded sum,
    // divided by the input maximum, rounded to single once.
    const auto rescaled = [&](Wide sum, float native) {
        if constexpr (Native_scale)
            return native;
        return float((Wide(output_maximum) * sum) / Wide(arguments.input_maximum));
    };

    if (Has_normalized_pair) {
        float* pair = arguments.normalized_stokes + 2 * (std::size_t(row) * arguments.columns + column);
        pair[0] = float(s1_wide / s0_wide);
        pair[1] = float(s2_wide / s0_wide);
    }
    if (Has_s0)
        *overlays.s0_image.element(row, column) = clamp_and_round(rescaled(s0_wide, s0), output_maximum);
    if (Has_s1)
        *overlays.s1_image.element(row, column) = clamp_and_round(rescaled(s1_wide, s1), output_maximum);
    if (Has_s2)
        *overlays.s2_image.element(row, column) = clamp_and_round(rescaled(s2_wide, s2), output_maximum);
    if (Has_azimuth) {
        const Lanes theta = lane_arctangent2<Single_lane_estimate>(_mm_set_ss(s1), _mm_set_ss(s2));
        const float degrees = _mm_cvtss_f32(theta) * float_from_bits(angle_scale_bits);
        const Wide azimuth = ((Wide(degrees) + Wide(90)) * Wide(output_maximum)) / Wide(180);
        *overlays.azimuth_image.element(row, column) = clamp_and_round(float(azimuth), output_maximum);
    }
    if (Has_dolp) {
        const Lanes s0_lane = _mm_set_ss(s0);
        const Lanes magnitude = _mm_sqrt_ss(_mm_set_ss(s1 * s1 + s2 * s2));
        Lanes degree = _mm_mul_ss(magnitude, single_estimate(s0_lane));
        degree = _mm_andnot_ps(_mm_cmpeq_ss(s0_lane, _mm_setzero_ps()), degree);
        *overlays.dolp_image.element(row, column) = clamp_and_round(_mm_cvtss_f32(degree) * output_maximum, output_maximum);
    }
}
