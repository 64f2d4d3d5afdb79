// The block in sixteen lanes: four neighbouring blocks per AVX-512 vector.
// Included only by translation units built for AVX-512 F, BW, DQ and VL,
// whose functions are reached only after initialise chose sixteen lanes.
#pragma once

#include <cstdint>

#include <immintrin.h>

#include "kernels/lane_operations.h"
#include "kernels/sse41_form.h"
#include "prefetch_ahead.h"

struct Avx512_form {
    using Lanes = __m512;
    static constexpr unsigned blocks_per_vector = 4;
    using Four_lane_form = Sse41_form;

    struct Row_lanes {
        Lanes even;  // per block w0, w2, w2, w2: the fourth lane repeats the third, as in Sse41_form
        Lanes odd;   // per block w1, w1, w3, w3
    };

    // One source row of four blocks per vector from one sixteen-element load:
    // the same elements that Sse41_form's two eight-element loads read for
    // them.
    template <unsigned Count>
    static KSI_LANE_OPERATION void widen(const std::uint16_t* row, Row_lanes (&lanes)[Count])
    {
        static_assert(Count == 1 || Count == 2, "at most two vectors per step");
        prefetch_ahead(row);
        for (unsigned vector = 0; vector < Count; ++vector) {
            const __m256i elements = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 16 * vector));
            const Lanes w = _mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(elements));
            lanes[vector] = {_mm512_shuffle_ps(w, w, _MM_SHUFFLE(2, 2, 2, 0)),
                             _mm512_shuffle_ps(w, w, _MM_SHUFFLE(3, 3, 1, 1))};
        }
    }

    // Limited lanes to 16-bit elements: rounding conversion under the current
    // mode, then unsigned-saturating narrowing of one vector, or a pack of two
    // into one 512-bit store. The lanes lie in 0 .. 65535, where saturation
    // changes nothing, as in Sse41_form's pack.
    template <unsigned Count>
    static KSI_LANE_OPERATION void store_lanes(std::uint16_t* destination, const Lanes (&limited)[Count])
    {
        static_assert(Count == 1 || Count == 2, "at most two vectors per step");
        prefetch_ahead(destination);
        const __m512i first = _mm512_cvtps_epi32(limited[0]);
        if constexpr (Count == 1) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination), _mm512_cvtusepi32_epi16(first));
        } else {
            // The pack works within 128-bit quarters, alternating the two
            // vectors' quarters; the permutation puts them in order.
            const __m512i packed = _mm512_packus_epi32(first, _mm512_cvtps_epi32(limited[1]));
            const __m512i quarters_in_order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
            _mm512_storeu_si512(destination, _mm512_permutexvar_epi64(quarters_in_order, packed));
        }
    }
};
