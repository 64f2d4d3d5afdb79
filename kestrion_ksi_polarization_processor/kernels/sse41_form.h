// The block's two ends on processors with SSE4.1: one eight-element load per
// source row, packed widening, and an unsigned-saturating pack. Included only
// by translation units built for SSE4.1.
#pragma once

#include <cstdint>

#include <smmintrin.h>

#include "kernels/four_lane_block.h"
#include "kernels/lane_operations.h"

struct Sse41_form {
    using Lanes = __m128;
    static constexpr unsigned blocks_per_vector = 1;
    using Four_lane_form = Sse41_form;

    struct Row_lanes {
        Lanes even;  // w0, w2, w2, w2: the fourth lane repeats the third
        Lanes odd;   // w1, w1, w3, w3
    };

    static KSI_LANE_OPERATION Row_lanes lanes_of(__m128i widened)
    {
        const Lanes w = _mm_cvtepi32_ps(widened);
        return {_mm_shuffle_ps(w, w, _MM_SHUFFLE(2, 2, 2, 0)), _mm_shuffle_ps(w, w, _MM_SHUFFLE(3, 3, 1, 1))};
    }

    // One source row of one block or of two neighbouring blocks, from a
    // single eight-element load. A block takes the first four elements of its
    // own columns; w4 never reaches its lanes. The load stays inside the row
    // because the last block starts eight elements or more before its end.
    template <unsigned Count>
    static KSI_LANE_OPERATION void widen(const std::uint16_t* row, Row_lanes (&lanes)[Count])
    {
        static_assert(Count == 1 || Count == 2, "one load serves at most two blocks");
        const __m128i elements = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row));
        lanes[0] = lanes_of(_mm_cvtepu16_epi32(elements));
        if constexpr (Count == 2)
            lanes[1] = lanes_of(_mm_unpackhi_epi16(elements, _mm_setzero_si128()));
    }

    // Limited lanes of one or two blocks to 16-bit elements: rounding
    // conversion, unsigned-saturating pack (against zero for a single block),
    // one store.
    template <unsigned Count>
    static KSI_LANE_OPERATION void store_lanes(std::uint16_t* destination, const Lanes (&limited)[Count])
    {
        static_assert(Count == 1 || Count == 2, "one store serves at most two blocks");
        const __m128i first = _mm_cvtps_epi32(limited[0]);
        if constexpr (Count == 1) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(destination), _mm_packus_epi32(first, _mm_setzero_si128()));
        } else {
            const __m128i second = _mm_cvtps_epi32(limited[1]);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), _mm_packus_epi32(first, second));
        }
    }
};
