#include "kernels/scalar_only_sweep.h"

#include <cstdint>
#include <tuple>
#include <utility>

#include "kernels/image_sweep.h"
#include "kernels/var_to_template.h"

namespace {

struct Scalar_only_callback {
    template <class Native_scale, class Has_normalized_pair, class Has_s0, class Has_s1, class Has_s2,
              class Has_azimuth, class Has_dolp, class Even_rows, class Even_columns>
    void operator()(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices) const
    {
        sweep_frame<No_block_stage, Native_scale::value, Has_normalized_pair::value, Has_s0::value, Has_s1::value,
                    Has_s2::value, Has_azimuth::value, Has_dolp::value, Even_rows::value, Even_columns::value>(
            arguments, matrices);
    }
};

}  // namespace

void generate_polarization_output_data_scalar_only(const Polarization_computation_arguments& arguments,
                                                   const Calibration_matrices& matrices)
{
    const std::uint32_t input_maximum = (std::uint32_t(1) << arguments.bit_depth) - 1;
    var_to_template<Scalar_only_callback, 9, std::tuple<>>::impl(
        arguments.output_maximum_integer == input_maximum, arguments.normalized_stokes != nullptr,
        arguments.s0_image != nullptr, arguments.s1_image != nullptr, arguments.s2_image != nullptr,
        arguments.azimuth_image != nullptr, arguments.dolp_image != nullptr, (arguments.rows & 1) == 0,
        (arguments.columns & 1) == 0, arguments, matrices);
}
