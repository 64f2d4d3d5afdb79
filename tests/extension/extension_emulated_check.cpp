// Run under an emulated processor through the library's exported functions:
//
//   qemu-x86_64 -cpu Haswell extension_emulated_check eight_lanes
//       CPUID reports AVX2 and no AVX-512F. The extension must accept and
//       choose eight lanes; every frame equals the local SSE4.1 kernels'.
//   qemu-x86_64 -cpu Nehalem extension_emulated_check refusal
//       No AVX. The extension's initialise must refuse, and the library then
//       computes every frame itself, again equal to its SSE4.1 kernels.
//
// The library is opened by path from the build tree, so it finds the real
// extension beside it. The extension's own choice is read from its internal
// library, linked here: the same code as in the shared object, run on the same
// emulated processor. Exits non-zero on the first wrong frame or if the
// processor is not what the mode needs (then the check would prove nothing).
#include <cpuid.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "exported_library.h"
#include "extension_runs.h"
#include "vector_avx2_module.h"

using namespace extension_test_support;

namespace {

struct Processor_features {
    bool avx = false, avx2 = false, avx512f = false;
};

Processor_features cpuid_features()
{
    Processor_features features;
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        features.avx = (ecx & (1u << 28)) != 0;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
        features.avx2 = (ebx & (1u << 5)) != 0;
        features.avx512f = (ebx & (1u << 16)) != 0;
    }
    return features;
}

// Every slot set on a few shapes, with sensor phases and origins, through the
// exported transform against the local SSE4.1 kernels.
int check_frames(Exported_library& library, unsigned lane_width_chosen)
{
    struct Shape {
        unsigned rows, columns;
    };
    const Shape shapes[] = {{2, 2}, {3, 5}, {6, 16}, {7, 21}, {9, 40}, {4, 71}};
    std::mt19937 random(1984u);
    unsigned frames = 0;
    for (Slot_set slots = 1; slots <= all_slots; ++slots)
        for (const Shape& shape : shapes) {
            Frame_case c = random_case(random, shape.rows, shape.columns);
            c.slots = slots;
            const std::int32_t sensor_phase = std::uniform_int_distribution<int>(-2, 3)(random);
            const std::int32_t origin_x = std::uniform_int_distribution<int>(-1, 2)(random);
            const std::int32_t origin_y = std::uniform_int_distribution<int>(-1, 2)(random);
            c.phase = rebased_phase(sensor_phase, origin_x, origin_y);
            const Frame frame = c.frame();
            const Angle_matrices angle_matrices = c.angle_matrices();
            if (library.set_coefficients(angle_matrices) != 0) {
                std::fprintf(stderr, "set coefficients failed\n");
                return 1;
            }
            Frame_outputs actual(frame.rows, frame.columns, c.slots);
            const int status =
                library.transform(frame, actual, sensor_phase, origin_x, origin_y, c.bit_depth, c.output_maximum);
            const Frame_outputs expected = run_local_sse41(frame, c.slots, c.phase, c.bit_depth, c.output_maximum,
                                                           matrices_of_phase(angle_matrices, c.phase));
            const std::string context = "sensor phase " + std::to_string(sensor_phase) + " origin (" +
                                        std::to_string(origin_x) + ", " + std::to_string(origin_y) + ") " +
                                        c.describe();
            if (status != 0) {
                std::fprintf(stderr, "%s: transform returned %d\n", context.c_str(), status);
                return 1;
            }
            const Comparison comparison = compare_outputs(expected, actual, context);
            if (!comparison.equal) {
                std::fprintf(stderr, "mismatch with the local SSE4.1 kernels\n%s", comparison.report.c_str());
                return 1;
            }
            if (lane_width_chosen != 0) {
                const Calibration_matrices matrices = matrices_of_phase(angle_matrices, c.phase);
                const Frame_outputs forced = run_extension(lane_width_chosen, frame, c.slots, c.phase, c.bit_depth,
                                                           c.output_maximum, matrices);
                const Comparison forced_comparison = compare_outputs(expected, forced, "forced " + context);
                if (!forced_comparison.equal) {
                    std::fprintf(stderr, "mismatch in the chosen width\n%s", forced_comparison.report.c_str());
                    return 1;
                }
            }
            ++frames;
        }
    std::printf("%u frames through the exported transform equal the local SSE4.1 kernels\n", frames);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const bool eight_lanes = argc == 2 && std::strcmp(argv[1], "eight_lanes") == 0;
    const bool refusal = argc == 2 && std::strcmp(argv[1], "refusal") == 0;
    if (!eight_lanes && !refusal) {
        std::fprintf(stderr, "usage: %s eight_lanes|refusal\n", argv[0]);
        return 2;
    }
    const Processor_features features = cpuid_features();
    std::printf("CPUID: AVX %d, AVX2 %d, AVX-512F %d\n", features.avx, features.avx2, features.avx512f);
    if (eight_lanes && !(features.avx2 && !features.avx512f)) {
        std::fprintf(stderr, "this mode needs a processor with AVX2 and without AVX-512F (qemu-x86_64 -cpu Haswell)\n");
        return 2;
    }
    if (refusal && features.avx) {
        std::fprintf(stderr, "this mode needs a processor without AVX (qemu-x86_64 -cpu Nehalem)\n");
        return 2;
    }
    if (!__builtin_cpu_supports("sse4.1")) {
        std::fprintf(stderr, "the local SSE4.1 kernels are the comparison: the processor needs SSE4.1\n");
        return 2;
    }

    const int accepted = kl_polarization_processor_vector_avx2_module_initialize();
    const unsigned chosen = vector_avx2::chosen_lane_width();
    std::printf("extension initialise returns %d, chooses %u lanes\n", accepted, chosen);
    if (eight_lanes && (accepted != 0 || chosen != 8)) {
        std::fprintf(stderr, "expected the extension to accept with eight lanes\n");
        return 1;
    }
    if (refusal && (accepted == 0 || chosen != 0)) {
        std::fprintf(stderr, "expected the extension to refuse\n");
        return 1;
    }

    Exported_library library(KSI_LIBRARY_FILE);
    if (!library.error().empty()) {
        std::fprintf(stderr, "%s\n", library.error().c_str());
        return 1;
    }
    if (library.start() != 0) {
        std::fprintf(stderr, "initialise or create failed\n");
        return 1;
    }
    // Refused or not, the library keeps the extension open until terminate.
    if (!extension_is_loaded()) {
        std::fprintf(stderr, "the library did not load the extension beside it\n");
        return 1;
    }
    return check_frames(library, chosen);
}
