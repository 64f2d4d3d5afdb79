// Definition of the block's row-pair function for every instruction form,
// written once over the form's lane type. Included by the block translation
// units after the header of their form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <type_traits>

#include "kernels/four_lane_block.h"
#include "kernels/lane_operations.h"
#include "kernels/stokes_needs.h"

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
// the maximum, then maximum with 0. Converting and storing the limited lanes
// is the form's part (store_lanes, store_row_pair).
template <class L>
KSI_LANE_OPERATION L clamp_lanes(L v, L maximum)
{
    return lanes_max(lanes_min(v, maximum), zero_lanes_like(v));
}

// The frame's buffers, shared by the blocks of every form in a row pair.
struct Block_outputs {
    const std::uint16_t* input;
    float* normalized_stokes;
    std::uint16_t* s0_image;
    std::uint16_t* s1_image;
    std::uint16_t* s2_image;
    std::uint16_t* azimuth_image;
    std::uint16_t* dolp_image;
};

// Whether a form stores one vector of each row of a row pair with a single
// pack (Form::store_row_pair), rather than each row with its own.
template <class Form, class = void>
struct Packs_row_pairs : std::false_type {
};
template <class Form>
struct Packs_row_pairs<Form, std::void_t<decltype(Form::store_row_pair(nullptr, nullptr, typename Form::Lanes{},
                                                                      typename Form::Lanes{}))>> : std::true_type {
};

template <class Indices, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, class Form>
struct Four_lane_block {
    using L = typename Form::Lanes;
    using Constants = Block_constants<sizeof(L) / sizeof(float)>;
    using Needs = Stokes_needs<Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth, Has_dolp>;
    static constexpr unsigned needed_vectors = (Needs::s0 ? vectors_named<Indices>(1, 8) : 0u) |
                                               (Needs::s1 ? vectors_named<Indices>(9, 12) : 0u) |
                                               (Needs::s2 ? vectors_named<Indices>(13, 16) : 0u);

    // Source vectors 2k and 2k + 1 come from source row k of a block.
    template <unsigned K, unsigned Count>
    static KSI_LANE_OPERATION void widen_if_needed(L (&v)[Count][6], const std::uint16_t* source_row)
    {
        if constexpr ((needed_vectors >> (2 * K) & 3u) != 0) {
            typename Form::Row_lanes lanes[Count];
            Form::widen(source_row, lanes);
            for (unsigned block = 0; block < Count; ++block) {
                v[block][2 * K] = lanes[block].even;
                v[block][2 * K + 1] = lanes[block].odd;
            }
        }
    }

    // The limited lanes of the 16-bit slots of one row of a block.
    struct Limited_row {
        L s0, s1, s2, azimuth, dolp;
    };

    using Outputs = Block_outputs;

    static KSI_LANE_OPERATION L rescaled(L v, const Constants& constants)
    {
        if constexpr (Native_scale)
            return v;
        return lanes_mul(lanes_mul(v, constants.max_float_lanes), constants.input_reciprocal_lanes);
    }

    // One row of a block: writes slot 0 and gives the limited lanes of the
    // 16-bit slots. Its S0 sums list positions Sum to Sum + 3, its S1 is
    // Difference_s1 minus the next one, its S2 likewise; `element` is the
    // row's element at the block's first column.
    template <std::size_t Sum, std::size_t Difference_s1, std::size_t Difference_s2>
    static KSI_LANE_OPERATION Limited_row row(const L (&v)[6], const Constants& constants, const Outputs& outputs,
                                              std::size_t element)
    {
        Limited_row limited = {};
        const L s0 = lanes_mul(lanes_add(lanes_add(v[Indices::at(Sum)], v[Indices::at(Sum + 1)]),
                                         lanes_add(v[Indices::at(Sum + 2)], v[Indices::at(Sum + 3)])),
                               constants.half_estimate);
        const L s1 = lanes_sub(v[Indices::at(Difference_s1)], v[Indices::at(Difference_s1 + 1)]);
        const L s2 = lanes_sub(v[Indices::at(Difference_s2)], v[Indices::at(Difference_s2 + 1)]);
        const L maximum = constants.max_float_lanes;

        if constexpr (Has_normalized_pair)
            store_interleaved(outputs.normalized_stokes + 2 * element, lanes_div(s1, s0), lanes_div(s2, s0));
        if constexpr (Has_s0)
            limited.s0 = clamp_lanes(rescaled(s0, constants), maximum);
        if constexpr (Has_s1)
            limited.s1 = clamp_lanes(rescaled(s1, constants), maximum);
        if constexpr (Has_s2)
            limited.s2 = clamp_lanes(rescaled(s2, constants), maximum);
        if constexpr (Has_azimuth) {
            const L angle = lane_arctangent2<Four_lane_estimate>(s1, s2);
            L azimuth = lanes_mul(angle, lanes_from_bits<L>(angle_scale_bits));
            azimuth = lanes_add(azimuth, lanes_from_bits<L>(azimuth_offset_bits));
            azimuth = lanes_mul(azimuth, constants.azimuth_scale);
            azimuth = clamp_lanes(azimuth, constants.max_int_lanes);
            limited.azimuth = clamp_lanes(azimuth, maximum);
        }
        if constexpr (Has_dolp) {
            const auto s0_zero = lanes_equal(s0, zero_lanes_like(s0));
            const L magnitude = lanes_sqrt(lanes_add(lanes_mul(s1, s1), lanes_mul(s2, s2)));
            L degree = lanes_mul(magnitude, estimate(s0));
            degree = clear_where(s0_zero, degree);  // exactly 0, not 0 x infinity, where S0 is 0
            degree = lanes_mul(degree, constants.max_int_lanes);
            limited.dolp = clamp_lanes(degree, maximum);
        }
        return limited;
    }

    // Calls store(image, slot) for every present 16-bit slot, in slot order.
    template <class Store>
    static KSI_LANE_OPERATION void for_each_slot(const Outputs& outputs, const Store& store)
    {
        if constexpr (Has_s0)
            store(outputs.s0_image, &Limited_row::s0);
        if constexpr (Has_s1)
            store(outputs.s1_image, &Limited_row::s1);
        if constexpr (Has_s2)
            store(outputs.s2_image, &Limited_row::s2);
        if constexpr (Has_azimuth)
            store(outputs.azimuth_image, &Limited_row::azimuth);
        if constexpr (Has_dolp)
            store(outputs.dolp_image, &Limited_row::dolp);
    }

    template <unsigned Count>
    static KSI_LANE_OPERATION void store_rows(const Outputs& outputs, std::size_t element,
                                              const Limited_row (&rows)[Count])
    {
        for_each_slot(outputs, [&](std::uint16_t* image, L Limited_row::*slot) KSI_LANE_OPERATION_BODY {
            L limited[Count];
            for (unsigned block = 0; block < Count; ++block)
                limited[block] = rows[block].*slot;
            Form::store_lanes(image + element, limited);
        });
    }

    // A single vector on each row, for a form that packs the two rows'
    // elements together: slot by slot, both rows at once.
    static KSI_LANE_OPERATION void store_row_pairs(const Outputs& outputs, std::size_t upper_element,
                                                   std::size_t columns, const Limited_row& upper,
                                                   const Limited_row& lower)
    {
        for_each_slot(outputs, [&](std::uint16_t* image, L Limited_row::*slot) KSI_LANE_OPERATION_BODY {
            Form::store_row_pair(image + upper_element, image + upper_element + columns, upper.*slot,
                                 lower.*slot);
        });
    }

    // Count neighbouring vectors of the form's blocks, from the upper row's
    // element `upper_element`. Neighbours share their source loads and stores.
    template <unsigned Count>
    static KSI_LANE_OPERATION void blocks(const Outputs& outputs, const Constants& constants,
                                          std::size_t upper_element, std::size_t columns)
    {
        L v[Count][6] = {};
        const std::uint16_t* source = outputs.input + upper_element;
        widen_if_needed<0>(v, source);
        widen_if_needed<1>(v, source + columns);
        widen_if_needed<2>(v, source + 2 * columns);
        Limited_row upper[Count], lower[Count];
        for (unsigned vector = 0; vector < Count; ++vector) {
            const std::size_t offset = columns_per_vector * vector;
            upper[vector] = row<1, 9, 13>(v[vector], constants, outputs, upper_element + offset);
            lower[vector] = row<5, 11, 15>(v[vector], constants, outputs, upper_element + columns + offset);
        }
        if constexpr (Count == 1 && Packs_row_pairs<Form>::value) {
            store_row_pairs(outputs, upper_element, columns, upper[0], lower[0]);
        } else {
            store_rows(outputs, upper_element, upper);
            store_rows(outputs, upper_element + columns, lower);
        }
    }

    static constexpr std::size_t columns_per_vector = 4 * Form::blocks_per_vector;

    // Steps of Count vectors from `column` while they fit before `block_end`;
    // gives the first column left over.
    template <unsigned Count>
    static KSI_LANE_OPERATION std::size_t steps(const Outputs& outputs, const Constants& constants,
                                                std::size_t upper_row, std::size_t column, std::size_t block_end,
                                                std::size_t columns)
    {
        for (; column + columns_per_vector * Count <= block_end; column += columns_per_vector * Count)
            blocks<Count>(outputs, constants, upper_row + column, columns);
        return column;
    }
};

// The address of the first present 16-bit slot's element, 0 if no 16-bit
// slot is present. Integer arithmetic: it only ever serves to tell alignment.
KSI_LANE_OPERATION std::uintptr_t first_image_address(const Block_outputs& outputs, std::size_t element)
{
    for (const std::uint16_t* image :
         {outputs.s0_image, outputs.s1_image, outputs.s2_image, outputs.azimuth_image, outputs.dolp_image})
        if (image != nullptr)
            return reinterpret_cast<std::uintptr_t>(image) + sizeof(std::uint16_t) * element;
    return 0;
}

// How many four-lane blocks bring a 16-bit row at `address` to a multiple of
// `alignment` bytes; 0 where steps of a block's four elements cannot.
KSI_LANE_OPERATION std::size_t blocks_to_alignment(std::uintptr_t address, std::size_t alignment)
{
    constexpr std::size_t block_bytes = 4 * sizeof(std::uint16_t);
    const std::size_t misalignment = address % alignment;
    return misalignment % block_bytes != 0 ? 0 : (alignment - misalignment) % alignment / block_bytes;
}

template <class Indices, bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2,
          bool Has_azimuth, bool Has_dolp, class Form>
void generate_four_lane_row_pair(const Four_lane_constants& frame_constants,
                                 const Polarization_computation_arguments& arguments, unsigned row, unsigned blocks)
{
    using Block = Four_lane_block<Indices, Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2, Has_azimuth,
                                  Has_dolp, Form>;
    // Blocks too few to fill the form's vector run in the four-lane form that
    // it repeats lane for lane.
    using Four_lane = Four_lane_block<Indices, Native_scale, Has_normalized_pair, Has_s0, Has_s1, Has_s2,
                                      Has_azimuth, Has_dolp, typename Form::Four_lane_form>;
    const Four_lane_constants constants = frame_constants;
    const Block_outputs outputs = {arguments.input,    arguments.normalized_stokes, arguments.s0_image,
                                   arguments.s1_image, arguments.s2_image,          arguments.azimuth_image,
                                   arguments.dolp_image};
    const std::size_t columns = arguments.columns;
    const std::size_t upper_row = std::size_t(row) * columns;
    const std::size_t block_end = 4 * std::size_t(blocks);
    // Two neighbouring vectors per step share loads, prefetches and stores;
    // the azimuth keeps too many values live for that, and runs one vector at
    // a time without spills.
    constexpr unsigned vectors_per_step = Has_azimuth ? 1 : 2;
    std::size_t column = 0;
    if constexpr (Form::blocks_per_vector > 1) {
        constexpr unsigned width = sizeof(typename Form::Lanes) / sizeof(float);
        const auto wide_constants = widened<width>(constants);
        // Four-lane blocks first, until the wide steps' 16-bit stores start on
        // a multiple of their own size: a store that straddles two cache lines
        // costs two.
        constexpr std::size_t step_bytes = sizeof(std::uint16_t) * Block::columns_per_vector * vectors_per_step;
        const std::size_t lead_in = 4 * blocks_to_alignment(first_image_address(outputs, upper_row), step_bytes);
        if (lead_in <= block_end)
            column = Four_lane::template steps<1>(outputs, constants, upper_row, column, lead_in, columns);
        column = Block::template steps<vectors_per_step>(outputs, wide_constants, upper_row, column, block_end,
                                                         columns);
        column = Block::template steps<1>(outputs, wide_constants, upper_row, column, block_end, columns);
    }
    column = Four_lane::template steps<vectors_per_step>(outputs, constants, upper_row, column, block_end, columns);
    if (column < block_end)
        Four_lane::template blocks<1>(outputs, constants, upper_row + column, columns);
}
