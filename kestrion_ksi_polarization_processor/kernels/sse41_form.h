// The block's two ends on processors with SSE4.1: one eight-element load per
// source row, packed widening, and an unsigned-saturating pack. Included only
// by translation units built for SSE4.1.
#pragma once

#include <cstdint>

#include <smmintrin.h>

#include "kernels/four_lane_block.h"
#include "kernels/lane_operations.h"

struct Sse41_form {
    struct Row_lanes {
        Lanes even;  // w0, w2, w2, w2: the fourth lane repeats the third
        Lanes odd;   // w1, w1, w3, w3
    };

    // Only the first four of the eight loaded elements reach a lane; the load
    // stays inside the row because the last block starts eight elements or
    // more before its end.
    static KSI_LANE_OPERATION Row_lanes widen(const std::uint16_t* row)
    {
        const __m128i elements = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row));
        const Lanes w = _mm_cvtepi32_ps(_mm_cvtepu16_epi32(elements));
        return {_mm_shuffle_ps(w, w, _MM_SHUFFLE(2, 2, 2, 0)), _mm_shuffle_ps(w, w, _MM_SHUFFLE(3, 3, 1, 1))};
    }

    // Clamped lanes to four elements: one rounding conversion, one pack.
    static KSI_LANE_OPERATION void store(std::uint16_t* destination, Lanes clamped)
    {
        const __m128i packed = _mm_packus_epi32(_mm_cvtps_epi32(clamped), _mm_setzero_si128());
        _mm_storel_epi64(reinterpret_cast<__m128i*>(destination), packed);
    }
};
