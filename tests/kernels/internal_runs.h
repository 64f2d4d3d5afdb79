// Runs of the kernel family through the internal entry points, and the
// expected content of a frame: the scalar-only sweep for every pixel, with
// the block pixels replaced by the four-lane reference. Needs the internal
// library.
#pragma once

#include <cstdint>

#include "four_lane_reference.h"
#include "kernel_test_support.h"

namespace kernel_test_support {

// generate_polarization_output_data with the record's phase set directly.
Frame_outputs run_dispatcher(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                             std::uint16_t output_maximum, const Calibration_matrices& matrices, bool has_sse41);

// generate_polarization_output_data_scalar_only on the same inputs.
Frame_outputs run_scalar_only(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                              std::uint16_t output_maximum, const Calibration_matrices& matrices);

// What a frame must hold after the kernel of the given block form has run.
Frame_outputs expected_outputs(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                               std::uint16_t output_maximum, const Calibration_matrices& matrices,
                               four_lane_reference::Block_form form);

}  // namespace kernel_test_support
