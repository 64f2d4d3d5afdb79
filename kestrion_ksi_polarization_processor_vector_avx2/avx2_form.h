// The block in eight lanes: two neighbouring blocks per AVX2 vector. Included
// only by translation units built for AVX2.
#pragma once

#include <cstdint>

#include <immintrin.h>

#include "kernels/lane_operations.h"
#include "kernels/sse41_form.h"

struct Avx2_form {
    using Lanes = __m256;
    static constexpr unsigned blocks_per_vector = 2;
    using Four_lane_form = Sse41_form;

    struct Row_lanes {
        Lanes even;  // per block w0, w2, w2, w2: the fourth lane repeats the third, as in Sse41_form
        Lanes odd;   // per block w1, w1, w3, w3
    };

    // One source row of both blocks from the eight-element load that
    // Sse41_form makes for the same two blocks: the first block's lanes in the
    // lower half, the second's in the upper.
    template <unsigned Count>
    static KSI_LANE_OPERATION void widen(const std::uint16_t* row, Row_lanes (&lanes)[Count])
    {
        static_assert(Count == 1, "one vector per step");
        const __m128i elements = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row));
        const Lanes w = _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(elements));
        lanes[0] = {_mm256_shuffle_ps(w, w, _MM_SHUFFLE(2, 2, 2, 0)), _mm256_shuffle_ps(w, w, _MM_SHUFFLE(3, 3, 1, 1))};
    }

    // Limited lanes to eight 16-bit elements: rounding conversion under the
    // current mode, unsigned-saturating pack of both halves, one store.
    template <unsigned Count>
    static KSI_LANE_OPERATION void store_lanes(std::uint16_t* destination, const Lanes (&limited)[Count])
    {
        static_assert(Count == 1, "one vector per step");
        const __m256i rounded = _mm256_cvtps_epi32(limited[0]);
        const __m128i packed =
            _mm_packus_epi32(_mm256_castsi256_si128(rounded), _mm256_extracti128_si256(rounded, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), packed);
    }
};
