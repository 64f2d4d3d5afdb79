#include "kernels/generate_polarization_output_data.h"

#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "kernels/kernel_family.h"
#include "kernels/var_to_template.h"
#include "kernels/vector_data_indices.h"

struct Polarization_process_callback {
    template <class... Parameters>
    void operator()(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices) const
    {
        generate_polarization_output_data_impl<Parameters...>(arguments, matrices);
    }
};

namespace {

template <class Indices, class Native_scale, class Has_normalized_pair>
using Kernel_choice =
    var_to_template<Polarization_process_callback, 8, std::tuple<Indices, Native_scale, Has_normalized_pair>>;

struct Frame_facts {
    bool has_s0, has_s1, has_s2, has_azimuth, has_dolp, even_rows, even_columns;
};

template <class Indices, class Native_scale, class Has_normalized_pair>
void choose_kernel(Frame_facts facts, bool has_sse41, const Polarization_computation_arguments& arguments,
                   const Calibration_matrices& matrices)
{
    Kernel_choice<Indices, Native_scale, Has_normalized_pair>::impl(
        facts.has_s0, std::move(facts.has_s1), std::move(facts.has_s2), std::move(facts.has_azimuth),
        std::move(facts.has_dolp), std::move(facts.even_rows), std::move(facts.even_columns), has_sse41, arguments,
        matrices);
}

template <class Indices>
void choose_kernel_of_phase(Frame_facts facts, bool native_scale, bool has_normalized_pair, bool has_sse41,
                            const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices)
{
    if (native_scale) {
        if (has_normalized_pair)
            choose_kernel<Indices, std::true_type, std::true_type>(facts, has_sse41, arguments, matrices);
        else
            choose_kernel<Indices, std::true_type, std::false_type>(facts, has_sse41, arguments, matrices);
    } else {
        if (has_normalized_pair)
            choose_kernel<Indices, std::false_type, std::true_type>(facts, has_sse41, arguments, matrices);
        else
            choose_kernel<Indices, std::false_type, std::false_type>(facts, has_sse41, arguments, matrices);
    }
}

}  // namespace

void generate_polarization_output_data(const Polarization_computation_arguments& arguments,
                                       const Calibration_matrices& matrices, bool has_sse41)
{
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
        choose_kernel_of_phase<Phase_90_indices>(facts, native_scale, has_normalized_pair, has_sse41, arguments,
                                                 matrices);
    else if (arguments.polar_phase == 3)
        choose_kernel_of_phase<Phase_135_indices>(facts, native_scale, has_normalized_pair, has_sse41, arguments,
                                                  matrices);
    else if (arguments.polar_phase == 1)
        choose_kernel_of_phase<Phase_45_indices>(facts, native_scale, has_normalized_pair, has_sse41, arguments,
                                                 matrices);
    else
        choose_kernel_of_phase<Phase_0_indices>(facts, native_scale, has_normalized_pair, has_sse41, arguments,
                                                matrices);
}
