// Definition of the block's row-pair function for either instruction form.
// Included by the block translation units after the header of their form.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/four_lane_block.h"
#include "kernels/lane_operations.h"

constexpr std::uint32_t azimuth_offset_bits = 0x42B40000u;  // 90.0

// The source vectors, by index, that positions first..last of a phase list
// name, as a bit set.
template <class Indices>
constexpr unsigned vectors_named(std::size_t first, std::size_t last)
{
    unsigned vectors = 0;
    for (std::size_t position = first; position <= last; ++position)
        vectors |= 1u << Indices::at(position);
    return vectors;
}

// Limits every 16-bit slot: minimum first, so that a not-a-number lands on
// the maximum, then maximum with 0.
KSI_LANE_OPERATION Lanes clamp_lanes(Lanes v, Lanes maximum)
{
    return _mm_max_ps(_mm_min_ps(v, maximum), _mm_setzero_ps());
}

template <class Form>
KSI_LANE_OPERATION void store_lanes(std::uint16_t* destination, Lanes v, Lanes maximum)
{
    Form::store(destination, clamp_lanes(v, maximum));
}

template <class Indices, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, class Form>
struct Four_lane_block {
    static constexpr bool needs_s0 = Has_normalized_pair || Has_s0 || Has_dolp;
    static constexpr bool needs_s1 = Has_normalized_pair || Has_s1 || Has_azimuth || Has_dolp;
    static constexpr bool needs_s2 = Has_normalized_pair || Has_s2 || Has_azimuth || Has_dolp;
    static constexpr unsigned needed_vectors = (needs_s0 ? vectors_named<Indices>(1, 8) : 0u) |
                                               (needs_s1 ? vectors_named<Indices>(9, 12) : 0u) |
                                               (needs_s2 ? vectors_named<Indices>(13, 16) : 0u);

    // Source vectors 2k and 2k + 1 come from source row k of the block.
    template <unsigned K>
    static KSI_LANE_OPERATION void widen_if_needed(Lanes (&v)[6], const std::uint16_t* source_row)
    {
        if constexpr ((needed_vectors >> (2 * K) & 3u) != 0) {
            const typename Form::Row_lanes lanes = Form::widen(source_row);
            v[2 * K] = lanes.even;
            v[2 * K + 1] = lanes.odd;
        }
    }

    struct Outputs {
        const std::uint16_t* input;
        float* normalized_stokes;
        std::uint16_t* s0_image;
        std::uint16_t* s1_image;
        std::uint16_t* s2_image;
        std::uint16_t* azimuth_image;
        std::uint16_t* dolp_image;
    };

    static KSI_LANE_OPERATION Lanes rescaled(Lanes v, const Four_lane_constants& constants)
    {
        if constexpr (Native_scale)
            return v;
        return _mm_mul_ps(_mm_mul_ps(v, constants.max_float_lanes), constants.input_reciprocal_lanes);
    }

    // One row of a block. Its S0 sums list positions Sum to Sum + 3, its S1
    // is Difference_s1 minus the next one, its S2 likewise; `element` is the
    // row's element at the block's first column.
    template <std::size_t Sum, std::size_t Difference_s1, std::size_t Difference_s2>
    static KSI_LANE_OPERATION void row(const Lanes (&v)[6], const Four_lane_constants& constants,
                                       const Outputs& outputs, std::size_t element)
    {
        const Lanes s0 = _mm_mul_ps(_mm_add_ps(_mm_add_ps(v[Indices::at(Sum)], v[Indices::at(Sum + 1)]),
                                               _mm_add_ps(v[Indices::at(Sum + 2)], v[Indices::at(Sum + 3)])),
                                    constants.half_estimate);
        const Lanes s1 = _mm_sub_ps(v[Indices::at(Difference_s1)], v[Indices::at(Difference_s1 + 1)]);
        const Lanes s2 = _mm_sub_ps(v[Indices::at(Difference_s2)], v[Indices::at(Difference_s2 + 1)]);
        const Lanes maximum = constants.max_float_lanes;

        if constexpr (Has_normalized_pair) {
            const Lanes s1_ratio = _mm_div_ps(s1, s0);
            const Lanes s2_ratio = _mm_div_ps(s2, s0);
            float* pair = outputs.normalized_stokes + 2 * element;
            _mm_storeu_ps(pair, _mm_unpacklo_ps(s1_ratio, s2_ratio));
            _mm_storeu_ps(pair + 4, _mm_unpackhi_ps(s1_ratio, s2_ratio));
        }
        if constexpr (Has_s0)
            store_lanes<Form>(outputs.s0_image + element, rescaled(s0, constants), maximum);
        if constexpr (Has_s1)
            store_lanes<Form>(outputs.s1_image + element, rescaled(s1, constants), maximum);
        if constexpr (Has_s2)
            store_lanes<Form>(outputs.s2_image + element, rescaled(s2, constants), maximum);
        if constexpr (Has_azimuth) {
            const Lanes angle = lane_arctangent2<Four_lane_estimate>(s1, s2);
            Lanes azimuth = _mm_mul_ps(angle, lanes_from_bits(angle_scale_bits));
            azimuth = _mm_add_ps(azimuth, lanes_from_bits(azimuth_offset_bits));
            azimuth = _mm_mul_ps(azimuth, constants.azimuth_scale);
            azimuth = clamp_lanes(azimuth, constants.max_int_lanes);
            store_lanes<Form>(outputs.azimuth_image + element, azimuth, maximum);
        }
        if constexpr (Has_dolp) {
            const Lanes s0_zero = _mm_cmpeq_ps(s0, _mm_setzero_ps());
            const Lanes magnitude = _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(s1, s1), _mm_mul_ps(s2, s2)));
            Lanes degree = _mm_mul_ps(magnitude, estimate(s0));
            degree = _mm_andnot_ps(s0_zero, degree);  // exactly 0, not 0 x infinity, where S0 is 0
            degree = _mm_mul_ps(degree, constants.max_int_lanes);
            store_lanes<Form>(outputs.dolp_image + element, degree, maximum);
        }
    }

    static KSI_LANE_OPERATION void block(const Outputs& outputs, const Four_lane_constants& constants,
                                         std::size_t upper_element, std::size_t columns)
    {
        Lanes v[6] = {_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps(),
                      _mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
        const std::uint16_t* source = outputs.input + upper_element;
        widen_if_needed<0>(v, source);
        widen_if_needed<1>(v, source + columns);
        widen_if_needed<2>(v, source + 2 * columns);
        row<1, 9, 13>(v, constants, outputs, upper_element);
        row<5, 11, 15>(v, constants, outputs, upper_element + columns);
    }
};

template <class Indices, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, class Form>
void generate_four_lane_row_pair(const Four_lane_constants& frame_constants,
                                 const Polarization_computation_arguments& arguments, unsigned row, unsigned blocks)
{
    using Block = Four_lane_block<Indices, Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth,
                                  Has_dolp, Form>;
    const Four_lane_constants constants = frame_constants;
    const typename Block::Outputs outputs = {arguments.input,    arguments.normalized_stokes, arguments.s0_image,
                                             arguments.s1_image, arguments.s2_image,          arguments.azimuth_image,
                                             arguments.dolp_image};
    const std::size_t columns = arguments.columns;
    const std::size_t upper_row = std::size_t(row) * columns;
    for (std::size_t column = 0; column < 4 * std::size_t(blocks); column += 4)
        Block::block(outputs, constants, upper_row + column, columns);
}
