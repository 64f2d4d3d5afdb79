#include "internal_runs.h"

#include "kernels/generate_polarization_output_data.h"
#include "kernels/scalar_only_sweep.h"

namespace kernel_test_support {

Frame_outputs run_dispatcher(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                             std::uint16_t output_maximum, const Calibration_matrices& matrices, bool has_sse41)
{
    Frame_outputs outputs(frame.rows, frame.columns, slots);
    const Polarization_computation_arguments arguments =
        make_arguments(frame, outputs, polar_phase, bit_depth, output_maximum);
    generate_polarization_output_data(arguments, matrices, has_sse41);
    return outputs;
}

Frame_outputs run_scalar_only(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                              std::uint16_t output_maximum, const Calibration_matrices& matrices)
{
    Frame_outputs outputs(frame.rows, frame.columns, slots);
    const Polarization_computation_arguments arguments =
        make_arguments(frame, outputs, polar_phase, bit_depth, output_maximum);
    generate_polarization_output_data_scalar_only(arguments, matrices);
    return outputs;
}

Frame_outputs expected_outputs(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                               std::uint16_t output_maximum, const Calibration_matrices& matrices,
                               four_lane_reference::Block_form form)
{
    Frame_outputs outputs = run_scalar_only(frame, slots, polar_phase, bit_depth, output_maximum, matrices);
    const Polarization_computation_arguments arguments =
        make_arguments(frame, outputs, polar_phase, bit_depth, output_maximum);
    four_lane_reference::write_block_pixels(arguments, form);
    return outputs;
}

}  // namespace kernel_test_support
