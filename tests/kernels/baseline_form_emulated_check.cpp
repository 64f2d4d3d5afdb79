// Run under an emulated processor without SSE4.1 (qemu-x86_64 -cpu core2duo).
// There the exported transform must pick the baseline block form: every frame
// is checked against the baseline four-lane reference in the block pixels and
// against the scalar-only sweep everywhere else, for all 63 slot sets and a
// range of frame shapes. Exits non-zero on the first wrong frame, or if the
// processor it runs on reports SSE4.1 (then it would prove nothing).
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "four_lane_reference.h"
#include "internal_runs.h"
#include "kernel_test_support.h"
#include "transform_runs.h"

using four_lane_reference::Block_form;
using namespace kernel_test_support;

namespace {

struct Shape {
    unsigned rows, columns;
};

}  // namespace

int main()
{
    if (cpuid_reports_sse41() || __builtin_cpu_supports("sse4.1")) {
        std::fprintf(stderr,
                     "this check must run on a processor without SSE4.1 (qemu-x86_64 -cpu core2duo); "
                     "CPUID reports SSE4.1 here\n");
        return 2;
    }
    if (cpuid_reports_avx2()) {
        std::fprintf(stderr, "CPUID reports AVX2; expected an emulated processor without it\n");
        return 2;
    }
    std::printf("CPUID: no SSE4.1, no AVX2; half estimate %.9g\n", double(four_lane_reference::half_estimate()));

    Processor_session session;
    if (session.create_status() != 0) {
        std::fprintf(stderr, "create failed with %d\n", session.create_status());
        return 1;
    }

    const Shape shapes[] = {{2, 2}, {3, 3}, {3, 2}, {5, 8}, {4, 8}, {8, 9}, {7, 13}, {6, 16}, {9, 22}, {4, 2448}};
    const Angle_matrices defaults = default_angle_matrices();
    std::mt19937 random(1789u);
    unsigned frames = 0, frames_where_forms_differ = 0;
    for (Slot_set slots = 1; slots <= all_slots; ++slots) {
        for (const Shape& shape : shapes) {
            const std::int32_t sensor_phase = std::int32_t((slots + shape.columns) % 4);
            const std::int32_t origin_x = std::int32_t(slots % 3) - 1, origin_y = std::int32_t(shape.rows % 3) - 1;
            const std::int32_t phase = rebased_phase(sensor_phase, origin_x, origin_y);
            const std::uint32_t bit_depth = 8 + (slots + shape.rows) % 9;
            const bool native = (slots + shape.columns) % 2 == 0;
            const std::uint16_t output_maximum = native ? std::uint16_t((1u << bit_depth) - 1u) : std::uint16_t(65535);
            const Frame frame = random_frame(random, shape.rows, shape.columns, bit_depth, Texture::mixed);

            Transform_result actual =
                run_transform(session, frame, slots, sensor_phase, origin_x, origin_y, bit_depth, output_maximum);
            const Calibration_matrices matrices = matrices_of_phase(defaults, phase);
            const Frame_outputs expected =
                expected_outputs(frame, slots, phase, bit_depth, output_maximum, matrices, Block_form::baseline);
            const std::string context = std::to_string(shape.rows) + "x" + std::to_string(shape.columns) +
                                        " slots " + slot_set_name(slots) + " phase " + std::to_string(phase) +
                                        " bit depth " + std::to_string(bit_depth) + " maximum " +
                                        std::to_string(output_maximum);
            if (actual.status != 0) {
                std::fprintf(stderr, "%s: transform returned %d\n", context.c_str(), actual.status);
                return 1;
            }
            const Comparison comparison = compare_outputs(expected, actual.outputs, context);
            if (!comparison.equal) {
                std::fprintf(stderr, "baseline form mismatch\n%s", comparison.report.c_str());
                return 1;
            }
            // The SSE4.1 reference must disagree wherever the fourth lane
            // sees different data, or this frame would not tell the forms apart.
            const Frame_outputs sse41 =
                expected_outputs(frame, slots, phase, bit_depth, output_maximum, matrices, Block_form::sse41);
            frames_where_forms_differ += compare_outputs(sse41, actual.outputs, context).equal ? 0 : 1;
            ++frames;
        }
    }
    std::printf("%u frames match the baseline form; %u of them differ from the SSE4.1 form\n", frames,
                frames_where_forms_differ);
    if (frames_where_forms_differ == 0) {
        std::fprintf(stderr, "no frame told the two block forms apart\n");
        return 1;
    }
    return 0;
}
