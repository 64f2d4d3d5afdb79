// The block's two ends on processors with SSE2 alone: single-element fetches
// and conversions, and element-by-element stores.
#pragma once

#include <cstdint>

#include "kernels/four_lane_block.h"
#include "kernels/lane_operations.h"

struct Baseline_form {
    using Lanes = __m128;
    static constexpr unsigned blocks_per_vector = 1;
    using Four_lane_form = Baseline_form;

    // The even and odd lanes of one source row from the block's first column.
    struct Row_lanes {
        Lanes even;  // w0, w2, w2, w4
        Lanes odd;   // w1, w1, w3, w3
    };

    static KSI_LANE_OPERATION Lanes element(const std::uint16_t* row, unsigned column)
    {
        return _mm_cvtsi32_ss(_mm_setzero_ps(), row[column]);
    }

    static KSI_LANE_OPERATION Row_lanes widen_block(const std::uint16_t* row)
    {
        const Lanes w0 = element(row, 0), w2 = element(row, 2), w4 = element(row, 4);
        const Lanes w1 = element(row, 1), w3 = element(row, 3);
        const Lanes w1_w3 = _mm_unpacklo_ps(w1, w3);
        const Lanes w0_w0_w2_w2 = _mm_unpacklo_ps(_mm_unpacklo_ps(w0, w2), _mm_unpacklo_ps(w0, w2));
        const Lanes w2_w2_w4_w4 = _mm_unpacklo_ps(_mm_unpacklo_ps(w2, w4), _mm_unpacklo_ps(w2, w4));
        // Lanes 0 and 2 of the first, lanes 1 and 3 of the second.
        return {_mm_shuffle_ps(w0_w0_w2_w2, w2_w2_w4_w4, _MM_SHUFFLE(3, 1, 2, 0)),
                _mm_shuffle_ps(w1_w3, w1_w3, _MM_SHUFFLE(1, 1, 0, 0))};
    }

    template <unsigned Count>
    static KSI_LANE_OPERATION void widen(const std::uint16_t* row, Row_lanes (&lanes)[Count])
    {
        for (unsigned block = 0; block < Count; ++block)
            lanes[block] = widen_block(row + 4 * block);
    }

    // Limited lanes to 16-bit elements, converted one lane at a time under
    // the current rounding mode and stored one element at a time.
    template <unsigned Count>
    static KSI_LANE_OPERATION void store_lanes(std::uint16_t* destination, const Lanes (&limited)[Count])
    {
        for (unsigned block = 0; block < Count; ++block) {
            const Lanes v = limited[block];
            std::uint16_t* const elements = destination + 4 * block;
            elements[0] = std::uint16_t(_mm_cvtss_si32(v));
            elements[1] = std::uint16_t(_mm_cvtss_si32(_mm_shuffle_ps(v, v, _MM_SHUFFLE(1, 1, 1, 1))));
            elements[2] = std::uint16_t(_mm_cvtss_si32(_mm_shuffle_ps(v, v, _MM_SHUFFLE(2, 2, 2, 2))));
            elements[3] = std::uint16_t(_mm_cvtss_si32(_mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 3, 3, 3))));
        }
    }
};
