// Small operations on four single-precision lanes, shared by the four-lane
// block and, through lane 0, by the scalar quartet evaluation. SSE2 only.
//
// Every operation is forced inline, so none is ever emitted as a function of
// its own: code built for a wider instruction set can use them without
// lending its instructions to callers on older processors.
#pragma once

#include <cstdint>

#include <emmintrin.h>

#define KSI_LANE_OPERATION inline __attribute__((always_inline))

using Lanes = __m128;

// Constants by their exact single-precision bits.
constexpr std::uint32_t sign_bit_bits = 0x80000000u;
constexpr std::uint32_t pi_bits = 0x40490FDBu;                // 3.1415927
constexpr std::uint32_t half_pi_bits = 0x3FC90FDBu;           // 1.5707964
constexpr std::uint32_t arctangent_cubic_bits = 0xBE448E01u;  // -0.19194795
constexpr std::uint32_t arctangent_linear_bits = 0x3F78EED2u; // 0.9723941
// One unit in the last place below the single nearest to 90/pi, so that pi
// and pi/2 times it give exactly 90 and 45 degrees.
constexpr std::uint32_t angle_scale_bits = 0x41E52EE0u;

KSI_LANE_OPERATION Lanes lanes_from_bits(std::uint32_t bits)
{
    return _mm_castsi128_ps(_mm_set1_epi32(std::int32_t(bits)));
}

KSI_LANE_OPERATION float float_from_bits(std::uint32_t bits)
{
    return _mm_cvtss_f32(lanes_from_bits(bits));
}

// The processor's reciprocal estimates, taken as they come: no refinement.
KSI_LANE_OPERATION Lanes estimate(Lanes v) { return _mm_rcp_ps(v); }
KSI_LANE_OPERATION Lanes single_estimate(Lanes v) { return _mm_rcp_ss(v); }

// The estimate an arctangent takes: four-lane in the block, scalar in the
// quartet evaluation.
struct Four_lane_estimate {
    static KSI_LANE_OPERATION Lanes of(Lanes v) { return estimate(v); }
};
struct Single_lane_estimate {
    static KSI_LANE_OPERATION Lanes of(Lanes v) { return single_estimate(v); }
};

// Bitwise choice: a where mask is set, b elsewhere. The rejected value is
// cleared bit by bit, so an infinity or not-a-number in it cannot leak.
KSI_LANE_OPERATION Lanes select_lanes(Lanes mask, Lanes a, Lanes b)
{
    return _mm_add_ps(_mm_and_ps(a, mask), _mm_andnot_ps(mask, b));
}

// x (c1 + c3 x x^2), evaluated as: square, times c3, plus c1, times x.
KSI_LANE_OPERATION Lanes fast_arctangent(Lanes v)
{
    const Lanes cubic = lanes_from_bits(arctangent_cubic_bits);
    const Lanes linear = lanes_from_bits(arctangent_linear_bits);
    return _mm_mul_ps(v, _mm_add_ps(_mm_mul_ps(_mm_mul_ps(v, v), cubic), linear));
}

// atan2(y, x) in radians from the fast arctangent, every quadrant computed
// and chosen by masks.
template <class Estimate>
KSI_LANE_OPERATION Lanes lane_arctangent2(Lanes x, Lanes y)
{
    const Lanes zero = _mm_setzero_ps();
    const Lanes sign = lanes_from_bits(sign_bit_bits);

    const Lanes x_nonzero = _mm_cmpneq_ps(x, zero);
    const Lanes y_smaller = _mm_cmplt_ps(_mm_andnot_ps(sign, y), _mm_andnot_ps(sign, x));
    const Lanes x_positive = _mm_cmplt_ps(zero, x);
    const Lanes y_not_negative = _mm_cmple_ps(zero, y);
    const Lanes y_positive = _mm_cmplt_ps(zero, y);
    const Lanes y_zero = _mm_cmpeq_ps(y, zero);

    const Lanes t = _mm_mul_ps(Estimate::of(x), y);  // y / x
    const Lanes u = Estimate::of(t);                 // x / y, from the estimated ratio
    const Lanes a = fast_arctangent(t);
    const Lanes b = fast_arctangent(u);

    const Lanes signed_pi = _mm_or_ps(lanes_from_bits(pi_bits), _mm_andnot_ps(y_not_negative, sign));
    const Lanes first_offset = _mm_andnot_ps(x_positive, signed_pi);
    const Lanes first_branch = _mm_add_ps(first_offset, a);

    const Lanes signed_half_pi = _mm_or_ps(lanes_from_bits(half_pi_bits), _mm_andnot_ps(y_positive, sign));
    const Lanes second_branch = _mm_add_ps(_mm_sub_ps(zero, b), signed_half_pi);

    const Lanes angle = select_lanes(y_smaller, first_branch, second_branch);
    const Lanes column_angle = _mm_andnot_ps(y_zero, signed_half_pi);  // x = 0
    return select_lanes(x_nonzero, angle, column_angle);
}
