// Small operations on single-precision lanes, shared by the block in every
// lane width and, through lane 0, by the scalar quartet evaluation.
//
// The block's arithmetic is written once, over a lane type: __m128 (SSE2,
// four lanes), __m256 (AVX, eight lanes) and __m512 (AVX-512, sixteen lanes).
// Each operation below is overloaded for the lane types that the translation
// unit's instruction set provides, and maps to the one instruction that does
// the same thing lane by lane, so every width computes the same bits.
//
// Every operation is forced inline, so none is ever emitted as a function of
// its own: code built for a wider instruction set can use them without
// lending its instructions to callers on older processors.
#pragma once

#include <cstdint>

#include <emmintrin.h>
#if defined(__AVX__)
#include <immintrin.h>
#endif

#define KSI_LANE_OPERATION inline __attribute__((always_inline))
// The same for a lambda, written after its parameter list.
#define KSI_LANE_OPERATION_BODY __attribute__((always_inline))

using Lanes = __m128;

// The vector of Width single-precision lanes.
template <unsigned Width>
struct Lane_vector;
template <>
struct Lane_vector<4> {
    using type = __m128;
};
#if defined(__AVX__)
template <>
struct Lane_vector<8> {
    using type = __m256;
};
#endif
#if defined(__AVX512F__)
template <>
struct Lane_vector<16> {
    using type = __m512;
};
#endif

// Constants by their exact single-precision bits.
constexpr std::uint32_t sign_bit_bits = 0x80000000u;
constexpr std::uint32_t pi_bits = 0x40490FDBu;                // 3.1415927
constexpr std::uint32_t half_pi_bits = 0x3FC90FDBu;           // 1.5707964
constexpr std::uint32_t arctangent_cubic_bits = 0xBE448E01u;  // -0.19194795
constexpr std::uint32_t arctangent_linear_bits = 0x3F78EED2u; // 0.9723941
// One unit in the last place below the single nearest to 90/pi, so that pi
// and pi/2 times it give exactly 90 and 45 degrees.
constexpr std::uint32_t angle_scale_bits = 0x41E52EE0u;

// Lane-by-lane arithmetic, comparisons and bit operations. A comparison gives
// a mask: a vector of all-ones lanes where SSE and AVX have one, an opmask
// register in AVX-512. Masks are only ever consumed by keep_where and
// clear_where, which clear the other lanes bit by bit in every width.
KSI_LANE_OPERATION __m128 lanes_add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_sub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_div(__m128 a, __m128 b) { return _mm_div_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_min(__m128 a, __m128 b) { return _mm_min_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_max(__m128 a, __m128 b) { return _mm_max_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_sqrt(__m128 a) { return _mm_sqrt_ps(a); }
KSI_LANE_OPERATION __m128 lanes_or(__m128 a, __m128 b) { return _mm_or_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_andnot(__m128 a, __m128 b) { return _mm_andnot_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_equal(__m128 a, __m128 b) { return _mm_cmpeq_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_not_equal(__m128 a, __m128 b) { return _mm_cmpneq_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_less(__m128 a, __m128 b) { return _mm_cmplt_ps(a, b); }
KSI_LANE_OPERATION __m128 lanes_less_equal(__m128 a, __m128 b) { return _mm_cmple_ps(a, b); }
KSI_LANE_OPERATION __m128 keep_where(__m128 mask, __m128 v) { return _mm_and_ps(v, mask); }
KSI_LANE_OPERATION __m128 clear_where(__m128 mask, __m128 v) { return _mm_andnot_ps(mask, v); }
KSI_LANE_OPERATION __m128 zero_lanes_like(__m128) { return _mm_setzero_ps(); }
KSI_LANE_OPERATION __m128 lanes_of_bits(std::uint32_t bits, __m128)
{
    return _mm_castsi128_ps(_mm_set1_epi32(std::int32_t(bits)));
}
// A value held in all four lanes, held in every lane of the width.
KSI_LANE_OPERATION __m128 widen_uniform(__m128 v, __m128) { return v; }
// The pairs (a_i, b_i) for every lane i, in lane order, as two floats each.
KSI_LANE_OPERATION void store_interleaved(float* pairs, __m128 a, __m128 b)
{
    _mm_storeu_ps(pairs, _mm_unpacklo_ps(a, b));
    _mm_storeu_ps(pairs + 4, _mm_unpackhi_ps(a, b));
}

#if defined(__AVX__)
KSI_LANE_OPERATION __m256 lanes_add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_div(__m256 a, __m256 b) { return _mm256_div_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_min(__m256 a, __m256 b) { return _mm256_min_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_max(__m256 a, __m256 b) { return _mm256_max_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_sqrt(__m256 a) { return _mm256_sqrt_ps(a); }
KSI_LANE_OPERATION __m256 lanes_or(__m256 a, __m256 b) { return _mm256_or_ps(a, b); }
KSI_LANE_OPERATION __m256 lanes_andnot(__m256 a, __m256 b) { return _mm256_andnot_ps(a, b); }
// The predicates of cmpeqps, cmpneqps, cmpltps and cmpleps.
KSI_LANE_OPERATION __m256 lanes_equal(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_EQ_OQ); }
KSI_LANE_OPERATION __m256 lanes_not_equal(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_NEQ_UQ); }
KSI_LANE_OPERATION __m256 lanes_less(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_LT_OS); }
KSI_LANE_OPERATION __m256 lanes_less_equal(__m256 a, __m256 b) { return _mm256_cmp_ps(a, b, _CMP_LE_OS); }
KSI_LANE_OPERATION __m256 keep_where(__m256 mask, __m256 v) { return _mm256_and_ps(v, mask); }
KSI_LANE_OPERATION __m256 clear_where(__m256 mask, __m256 v) { return _mm256_andnot_ps(mask, v); }
KSI_LANE_OPERATION __m256 zero_lanes_like(__m256) { return _mm256_setzero_ps(); }
KSI_LANE_OPERATION __m256 lanes_of_bits(std::uint32_t bits, __m256)
{
    return _mm256_castsi256_ps(_mm256_set1_epi32(std::int32_t(bits)));
}
KSI_LANE_OPERATION __m256 widen_uniform(__m128 v, __m256) { return _mm256_set_m128(v, v); }
KSI_LANE_OPERATION void store_interleaved(float* pairs, __m256 a, __m256 b)
{
    // Within each half: (a0 b0 a1 b1) and (a2 b2 a3 b3). Four 128-bit stores
    // put the halves in order with no shuffle across halves: storing a high
    // half needs none.
    const __m256 low = _mm256_unpacklo_ps(a, b);
    const __m256 high = _mm256_unpackhi_ps(a, b);
    _mm_storeu_ps(pairs, _mm256_castps256_ps128(low));
    _mm_storeu_ps(pairs + 4, _mm256_castps256_ps128(high));
    _mm_storeu_ps(pairs + 8, _mm256_extractf128_ps(low, 1));
    _mm_storeu_ps(pairs + 12, _mm256_extractf128_ps(high, 1));
}
#endif

#if defined(__AVX512F__) && defined(__AVX512DQ__) && defined(__AVX512BW__) && defined(__AVX512VL__)
KSI_LANE_OPERATION __m512 lanes_add(__m512 a, __m512 b) { return _mm512_add_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_sub(__m512 a, __m512 b) { return _mm512_sub_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_mul(__m512 a, __m512 b) { return _mm512_mul_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_div(__m512 a, __m512 b) { return _mm512_div_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_min(__m512 a, __m512 b) { return _mm512_min_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_max(__m512 a, __m512 b) { return _mm512_max_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_sqrt(__m512 a) { return _mm512_sqrt_ps(a); }
KSI_LANE_OPERATION __m512 lanes_or(__m512 a, __m512 b) { return _mm512_or_ps(a, b); }
KSI_LANE_OPERATION __m512 lanes_andnot(__m512 a, __m512 b) { return _mm512_andnot_ps(a, b); }
KSI_LANE_OPERATION __mmask16 lanes_equal(__m512 a, __m512 b) { return _mm512_cmp_ps_mask(a, b, _CMP_EQ_OQ); }
KSI_LANE_OPERATION __mmask16 lanes_not_equal(__m512 a, __m512 b) { return _mm512_cmp_ps_mask(a, b, _CMP_NEQ_UQ); }
KSI_LANE_OPERATION __mmask16 lanes_less(__m512 a, __m512 b) { return _mm512_cmp_ps_mask(a, b, _CMP_LT_OS); }
KSI_LANE_OPERATION __mmask16 lanes_less_equal(__m512 a, __m512 b) { return _mm512_cmp_ps_mask(a, b, _CMP_LE_OS); }
KSI_LANE_OPERATION __m512 keep_where(__mmask16 mask, __m512 v) { return _mm512_maskz_mov_ps(mask, v); }
KSI_LANE_OPERATION __m512 clear_where(__mmask16 mask, __m512 v) { return _mm512_maskz_mov_ps(__mmask16(~mask), v); }
KSI_LANE_OPERATION __m512 zero_lanes_like(__m512) { return _mm512_setzero_ps(); }
KSI_LANE_OPERATION __m512 lanes_of_bits(std::uint32_t bits, __m512)
{
    return _mm512_castsi512_ps(_mm512_set1_epi32(std::int32_t(bits)));
}
KSI_LANE_OPERATION __m512 widen_uniform(__m128 v, __m512) { return _mm512_broadcastss_ps(v); }
KSI_LANE_OPERATION void store_interleaved(float* pairs, __m512 a, __m512 b)
{
    // Within each quarter: (a0 b0 a1 b1) and (a2 b2 a3 b3); then the quarters
    // of both in order.
    const __m512 low = _mm512_unpacklo_ps(a, b);
    const __m512 high = _mm512_unpackhi_ps(a, b);
    const __m512i first = _mm512_setr_epi32(0, 1, 2, 3, 16, 17, 18, 19, 4, 5, 6, 7, 20, 21, 22, 23);
    const __m512i second = _mm512_setr_epi32(8, 9, 10, 11, 24, 25, 26, 27, 12, 13, 14, 15, 28, 29, 30, 31);
    _mm512_storeu_ps(pairs, _mm512_permutex2var_ps(low, first, high));
    _mm512_storeu_ps(pairs + 16, _mm512_permutex2var_ps(low, second, high));
}
#endif

template <class L = __m128>
KSI_LANE_OPERATION L lanes_from_bits(std::uint32_t bits)
{
    return lanes_of_bits(bits, L{});
}

KSI_LANE_OPERATION float float_from_bits(std::uint32_t bits)
{
    return _mm_cvtss_f32(lanes_from_bits(bits));
}

// The processor's reciprocal estimates, taken as they come: no refinement.
// Every width takes the estimates of rcpps, never of rcp14ps, whose bits
// differ; sixteen lanes take them as two halves of eight.
KSI_LANE_OPERATION __m128 estimate(__m128 v) { return _mm_rcp_ps(v); }
#if defined(__AVX__)
KSI_LANE_OPERATION __m256 estimate(__m256 v) { return _mm256_rcp_ps(v); }
#endif
#if defined(__AVX512F__) && defined(__AVX512DQ__) && defined(__AVX512BW__) && defined(__AVX512VL__)
KSI_LANE_OPERATION __m512 estimate(__m512 v)
{
    const __m256 low = _mm256_rcp_ps(_mm512_castps512_ps256(v));
    const __m256 high = _mm256_rcp_ps(_mm512_extractf32x8_ps(v, 1));
    return _mm512_insertf32x8(_mm512_castps256_ps512(low), high, 1);
}
#endif
KSI_LANE_OPERATION Lanes single_estimate(Lanes v) { return _mm_rcp_ss(v); }

// The estimate an arctangent takes: every lane in the block, lane 0 alone in
// the quartet evaluation.
struct Four_lane_estimate {
    template <class L>
    static KSI_LANE_OPERATION L of(L v) { return estimate(v); }
};
struct Single_lane_estimate {
    static KSI_LANE_OPERATION Lanes of(Lanes v) { return single_estimate(v); }
};

// Bitwise choice: a where mask is set, b elsewhere. The rejected value is
// cleared bit by bit, so an infinity or not-a-number in it cannot leak.
template <class L, class Mask>
KSI_LANE_OPERATION L select_lanes(Mask mask, L a, L b)
{
    return lanes_add(keep_where(mask, a), clear_where(mask, b));
}

// x (c1 + c3 x x^2), evaluated as: square, times c3, plus c1, times x.
template <class L>
KSI_LANE_OPERATION L fast_arctangent(L v)
{
    const L cubic = lanes_from_bits<L>(arctangent_cubic_bits);
    const L linear = lanes_from_bits<L>(arctangent_linear_bits);
    return lanes_mul(v, lanes_add(lanes_mul(lanes_mul(v, v), cubic), linear));
}

// atan2(y, x) in radians from the fast arctangent, every quadrant computed
// and chosen by masks.
template <class Estimate, class L>
KSI_LANE_OPERATION L lane_arctangent2(L x, L y)
{
    const L zero = zero_lanes_like(x);
    const L sign = lanes_from_bits<L>(sign_bit_bits);

    const auto x_nonzero = lanes_not_equal(x, zero);
    const auto y_smaller = lanes_less(lanes_andnot(sign, y), lanes_andnot(sign, x));
    const auto x_positive = lanes_less(zero, x);
    const auto y_not_negative = lanes_less_equal(zero, y);
    const auto y_positive = lanes_less(zero, y);
    const auto y_zero = lanes_equal(y, zero);

    const L t = lanes_mul(Estimate::of(x), y);  // y / x
    const L u = Estimate::of(t);                // x / y, from the estimated ratio
    const L a = fast_arctangent(t);
    const L b = fast_arctangent(u);

    const L signed_pi = lanes_or(lanes_from_bits<L>(pi_bits), clear_where(y_not_negative, sign));
    const L first_offset = clear_where(x_positive, signed_pi);
    const L first_branch = lanes_add(first_offset, a);

    const L signed_half_pi = lanes_or(lanes_from_bits<L>(half_pi_bits), clear_where(y_positive, sign));
    const L second_branch = lanes_add(lanes_sub(zero, b), signed_half_pi);

    const L angle = select_lanes(y_smaller, first_branch, second_branch);
    const L column_angle = clear_where(y_zero, signed_half_pi);  // x = 0
    return select_lanes(x_nonzero, angle, column_angle);
}
