#include "extension_runs.h"

#include "internal_runs.h"
#include "vector_avx2_module.h"

namespace extension_test_support {

bool sixteen_lanes_runnable() { return vector_avx2::supported_lane_width() >= 16; }

std::vector<unsigned> runnable_lane_widths()
{
    std::vector<unsigned> widths;
    if (vector_avx2::supported_lane_width() >= 8)
        widths.push_back(8);
    if (sixteen_lanes_runnable())
        widths.push_back(16);
    return widths;
}

Frame_outputs run_extension(unsigned lane_width, const Frame& frame, Slot_set slots, std::int32_t polar_phase,
                            std::uint32_t bit_depth, std::uint16_t output_maximum,
                            const Calibration_matrices& matrices, std::size_t image_offset)
{
    Frame_outputs outputs(frame.rows, frame.columns, slots, image_offset);
    const Polarization_computation_arguments arguments =
        make_arguments(frame, outputs, polar_phase, bit_depth, output_maximum);
    vector_avx2::transform_in_lanes(lane_width, arguments, matrices);
    return outputs;
}

Frame_outputs run_local_sse41(const Frame& frame, Slot_set slots, std::int32_t polar_phase, std::uint32_t bit_depth,
                              std::uint16_t output_maximum, const Calibration_matrices& matrices)
{
    return run_dispatcher(frame, slots, polar_phase, bit_depth, output_maximum, matrices, true);
}

Comparison compare_with_local(unsigned lane_width, const Frame_case& c, std::size_t image_offset)
{
    const Frame frame = c.frame();
    const Angle_matrices angle_matrices = c.angle_matrices();
    const Calibration_matrices matrices = matrices_of_phase(angle_matrices, c.phase);
    const Frame_outputs expected =
        run_local_sse41(frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices);
    const Frame_outputs actual =
        run_extension(lane_width, frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices, image_offset);
    return compare_outputs(expected, actual,
                           std::to_string(lane_width) + " lanes, images " + std::to_string(image_offset) +
                               " elements into their buffers, " + c.describe());
}

}  // namespace extension_test_support
