// Runs of the extension's transform in a forced lane width, and of the
// library's local SSE4.1 kernels on the same record, for the tests that hold
// the two side by side. Needs both internal libraries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kernel_test_support.h"

namespace extension_test_support {

using namespace kernel_test_support;

// The widths this processor can run: 8, and 16 where it has AVX-512.
std::vector<unsigned> runnable_lane_widths();
bool sixteen_lanes_runnable();

// The extension's transform in `lane_width` lanes on a fresh set of outputs,
// whose 16-bit images start `image_offset` elements into their buffers.
Frame_outputs run_extension(unsigned lane_width, const Frame& frame, Slot_set slots, std::int32_t polar_phase,
                            std::uint32_t bit_depth, std::uint16_t output_maximum,
                            const Calibration_matrices& matrices, std::size_t image_offset = 0);

// The library's local kernels with SSE4.1, as the library runs them without
// an extension.
Frame_outputs run_local_sse41(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                              std::uint16_t output_maximum, const Calibration_matrices& matrices);

// The extension in `lane_width` lanes against the local SSE4.1 kernels.
Comparison compare_with_local(unsigned lane_width, const Frame_case& c, std::size_t image_offset = 0);

}  // namespace extension_test_support
