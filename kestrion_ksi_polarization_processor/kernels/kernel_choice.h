// Turns the run-time facts of a frame into one whole-image kernel of a
// family: the phase list, then the scale and the normalized pair, then the
// five 16-bit slots and the two size parities, and last any flags of the
// family's own (the library's SSE4.1 flag). Callback's call operator receives
// the chosen types, the record and the matrices.
#pragma once

#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kernels/polarization_computation_arguments.h"
#include "kernels/var_to_template.h"
#include "kernels/vector_data_indices.h"

namespace kernel_choice {

struct Frame_facts {
    bool has_s0, has_s1, has_s2, has_azimuth, has_dolp, even_rows, even_columns;
};

template <class Callback, class Indices, class Native_scale, class Has_normalized_pair, class... Family_flags>
void choose(Frame_facts facts, const Polarization_computation_arguments& arguments,
            const Calibration_matrices& matrices, Family_flags&... family_flags)
{
    using Chosen = std::tuple<Indices, Native_scale, Has_normalized_pair>;
    var_to_template<Callback, 7 + sizeof...(Family_flags), Chosen>::impl(
        facts.has_s0, std::move(facts.has_s1), std::move(facts.has_s2), std::move(facts.has_azimuth),
        std::move(facts.has_dolp), std::move(facts.even_rows), std::move(facts.even_columns), family_flags...,
        arguments, matrices);
}

template <class Callback, class Indices, class... Family_flags>
void choose_of_phase(Frame_facts facts, bool native_scale, bool has_normalized_pair,
                     const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices,
                     Family_flags&... family_flags)
{
    if (native_scale) {
        if (has_normalized_pair)
            choose<Callback, Indices, std::true_type, std::true_type>(facts, arguments, matrices, family_flags...);
        else
            choose<Callback, Indices, std::true_type, std::false_type>(facts, arguments, matrices, family_flags...);
    } else {
        if (has_normalized_pair)
            choose<Callback, Indices, std::false_type, std::true_type>(facts, arguments, matrices, family_flags...);
        else
            choose<Callback, Indices, std::false_type, std::false_type>(facts, arguments, matrices, family_flags...);
    }
}

}  // namespace kernel_choice

template <class Callback, class... Family_flags>
void choose_kernel(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices,
                   Family_flags&... family_flags)
{
    using namespace kernel_choice;
    const Frame_facts facts = {
        arguments.s0_image != nullptr,      arguments.s1_image != nullptr,   arguments.s2_image != nullptr,
        arguments.azimuth_image != nullptr, arguments.dolp_image != nullptr, (arguments.rows & 1) == 0,
        (arguments.columns & 1) == 0,
    };
    // Recomputed as an integer, so that the comparison is exact.
    const std::uint32_t input_maximum = (std::uint32_t(1) << arguments.bit_depth) - 1;
    const bool native_scale = arguments.output_maximum_integer == input_maximum;
    const bool has_normalized_pair = arguments.normalized_stokes != nullptr;

    // Any phase other than 1, 2 and 3 is phase 0.
    if (arguments.polar_phase == 2)
        choose_of_phase<Callback, Phase_90_indices>(facts, native_scale, has_normalized_pair, arguments, matrices,
                                                    family_flags...);
    else if (arguments.polar_phase == 3)
        choose_of_phase<Callback, Phase_135_indices>(facts, native_scale, has_normalized_pair, arguments, matrices,
                                                     family_flags...);
    else if (arguments.polar_phase == 1)
        choose_of_phase<Callback, Phase_45_indices>(facts, native_scale, has_normalized_pair, arguments, matrices,
                                                    family_flags...);
    else
        choose_of_phase<Callback, Phase_0_indices>(facts, native_scale, has_normalized_pair, arguments, matrices,
                                                   family_flags...);
}
