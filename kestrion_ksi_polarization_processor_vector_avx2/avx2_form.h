// The block in eight lanes: two neighbouring blocks per AVX2 vector. Included
// only by translation units built for AVX2.
#pragma once

#include <cstdint>

#include <immintrin.h>

#include "kernels/lane_operations.h"
#include "kernels/sse41_form.h"
#include "prefetch_ahead.h"

struct Avx2_form {
    using Lanes = __m256;
    static constexpr unsigned blocks_per_vector = 2;
    using Four_lane_form = Sse41_form;

    struct Row_lanes {
        Lanes even;  // per block w0, w2, w2, w2: the fourth lane repeats the third, as in Sse41_form
        Lanes odd;   // per block w1, w1, w3, w3
    };

    // One source row of two blocks per vector, from the eight-element load
    // that Sse41_form makes for the same two blocks: the first block's lanes
    // in the lower half, the second's in the upper.
    template <unsigned Count>
    static KSI_LANE_OPERATION void widen(const std::uint16_t* row, Row_lanes (&lanes)[Count])
    {
        static_assert(Count == 1 || Count == 2, "at most two vectors per step");
        prefetch_ahead(row);
        for (unsigned vector = 0; vector < Count; ++vector) {
            const __m128i elements = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 8 * vector));
            const Lanes w = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(elements));
            lanes[vector] = {_mm256_shuffle_ps(w, w, _MM_SHUFFLE(2, 2, 2, 0)),
                             _mm256_shuffle_ps(w, w, _MM_SHUFFLE(3, 3, 1, 1))};
        }
    }

    // Two vectors' limited lanes as sixteen 16-bit elements, the first's
    // then the second's: rounding conversion under the current mode, then an
    // unsigned-saturating pack. The lanes lie in 0 .. 65535, where saturation
    // changes nothing. The pack works within 128-bit halves (first low,
    // second low, first high, second high); the permutation puts them in
    // order.
    static KSI_LANE_OPERATION __m256i packed_in_order(Lanes first, Lanes second)
    {
        const __m256i packed = _mm256_packus_epi32(_mm256_cvtps_epi32(first), _mm256_cvtps_epi32(second));
        return _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0));
    }

    // Two neighbouring vectors of one row: one pack, one 256-bit store. A
    // single vector per row goes through store_row_pair.
    template <unsigned Count>
    static KSI_LANE_OPERATION void store_lanes(std::uint16_t* destination, const Lanes (&limited)[Count])
    {
        static_assert(Count == 2, "a single vector per row is stored with its row pair");
        prefetch_ahead(destination);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination), packed_in_order(limited[0], limited[1]));
    }

    // One vector of each row of a row pair: one pack for both rows, whose
    // halves go to the two rows; storing the upper half needs no shuffle.
    static KSI_LANE_OPERATION void store_row_pair(std::uint16_t* upper, std::uint16_t* lower, Lanes upper_limited,
                                                  Lanes lower_limited)
    {
        prefetch_ahead(upper);
        prefetch_ahead(lower);
        const __m256i packed = packed_in_order(upper_limited, lower_limited);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(upper), _mm256_castsi256_si128(packed));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(lower), _mm256_extracti128_si256(packed, 1));
    }
};
