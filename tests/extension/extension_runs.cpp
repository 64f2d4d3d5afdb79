#include "extension_runs.h"

#include <sstream>

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
                            const Calibration_matrices& matrices)
{
    Frame_outputs outputs(frame.rows, frame.columns, slots);
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

std::string Frame_case::describe() const
{
    std::ostringstream s;
    s << rows << "x" << columns << " phase " << phase << " bit_depth " << bit_depth << " output_maximum "
      << output_maximum << (is_native_scale(bit_depth, output_maximum) ? " (native)" : " (rescaled)") << " slots "
      << slot_set_name(slots) << " matrices "
      << (matrices_kind == 0 ? "default" : matrices_kind == 1 ? "random" : "random+non-finite") << " texture "
      << texture_name(texture) << " seed " << seed;
    return s.str();
}

Frame Frame_case::frame() const
{
    std::mt19937 random(seed);
    return random_frame(random, rows, columns, bit_depth, texture);
}

Angle_matrices Frame_case::angle_matrices() const
{
    if (matrices_kind == 0)
        return default_angle_matrices();
    std::mt19937 random(seed ^ 0x9E3779B9u);
    return random_angle_matrices(random, matrices_kind == 2);
}

std::uint16_t random_output_maximum(std::mt19937& random, std::uint32_t bit_depth)
{
    const int c = std::uniform_int_distribution<int>(0, 9)(random);
    if (c < 4 && bit_depth > 0)
        return std::uint16_t((1u << bit_depth) - 1u);  // native scale
    static const std::uint16_t common[] = {65535, 4095, 255, 1, 1000, 65534, 1023, 16383};
    if (c < 7)
        return common[std::uniform_int_distribution<int>(0, 7)(random)];
    return std::uint16_t(std::uniform_int_distribution<int>(1, 65535)(random));
}

Frame_case random_case(std::mt19937& random, unsigned rows, unsigned columns)
{
    Frame_case c;
    c.rows = rows;
    c.columns = columns;
    c.phase = std::uniform_int_distribution<int>(-5, 3)(random);
    c.bit_depth = std::uint32_t(std::uniform_int_distribution<int>(0, 16)(random));
    c.output_maximum = random_output_maximum(random, c.bit_depth);
    c.slots = Slot_set(std::uniform_int_distribution<int>(1, 63)(random));
    const int m = std::uniform_int_distribution<int>(0, 5)(random);
    c.matrices_kind = m < 3 ? 0 : m < 5 ? 1 : 2;
    c.texture = random_texture(random);
    c.seed = std::uint32_t(random());
    return c;
}

Comparison compare_with_local(unsigned lane_width, const Frame_case& c)
{
    const Frame frame = c.frame();
    const Angle_matrices angle_matrices = c.angle_matrices();
    const Calibration_matrices matrices = matrices_of_phase(angle_matrices, c.phase);
    const Frame_outputs expected =
        run_local_sse41(frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices);
    const Frame_outputs actual =
        run_extension(lane_width, frame, c.slots, c.phase, c.bit_depth, c.output_maximum, matrices);
    return compare_outputs(expected, actual, std::to_string(lane_width) + " lanes " + c.describe());
}

}  // namespace extension_test_support
