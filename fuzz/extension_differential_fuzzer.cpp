// The AVX2 extension against the library's local SSE4.1 kernels: the same
// frame, phase, scale, slot set and calibration matrices (NaN and infinities
// included) through both must give identical bytes, in every lane width this
// processor runs. Buffers are exact-size heap allocations, so
// AddressSanitizer also stops any access outside the frame on either path.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "frame_from_bytes.h"
#include "kernels/generate_polarization_output_data.h"
#include "vector_avx2_module.h"

using namespace ksi_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static const unsigned widest = vector_avx2::supported_lane_width();
    if (widest == 0 || !__builtin_cpu_supports("sse4.1"))
        return -1;  // nothing to compare on this processor

    FuzzedDataProvider data(bytes, size);
    const unsigned lane_width = widest == 16 && data.ConsumeBool() ? 16 : 8;
    // Up to 80 columns, so that a row holds several sixteen-lane steps and a
    // remainder.
    const Fuzzed_frame frame = consume_frame(data, 80);
    const Positional_matrices positional(frame);

    Output_buffers local(frame);
    generate_polarization_output_data(frame.record(local), positional.pointers(), true);
    Output_buffers extension(frame);
    vector_avx2::transform_in_lanes(lane_width, frame.record(extension), positional.pointers());

    for (unsigned slot = 0; slot < 6; ++slot) {
        if (!frame.has(slot))
            continue;
        const std::size_t elements = slot == 0 ? 2 * frame.pixels() : frame.pixels();
        for (std::size_t i = 0; i < elements; ++i) {
            const bool same = slot == 0 ? same_elements(local.normalized, extension.normalized, i, 1)
                                        : local.images[slot][i] == extension.images[slot][i];
            if (!same) {
                const std::size_t pixel = slot == 0 ? i / 2 : i;
                std::fprintf(stderr, "%s, %u lanes: slot %u differs at row %zu, column %zu\n",
                             frame.describe().c_str(), lane_width, slot, pixel / frame.columns,
                             pixel % frame.columns);
                std::abort();
            }
        }
    }
    return 0;
}
