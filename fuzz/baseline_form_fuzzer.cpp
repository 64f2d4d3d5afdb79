// The baseline form of the local kernels (what processors without SSE4.1
// run) on arbitrary frames, phases, scales, slot sets and calibration
// matrices, against the test suite's independent models: the scalar
// reference on every pixel of the scalar stages, the lane-by-lane model of
// the baseline block on the block pixels. Buffers are exact-size heap
// allocations, so AddressSanitizer also stops any access outside the frame.

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "four_lane_reference.h"
#include "frame_from_bytes.h"
#include "kernels/generate_polarization_output_data.h"
#include "scalar_reference.h"

using namespace ksi_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    const Fuzzed_frame frame = consume_frame(data);

    Output_buffers actual(frame);
    const Polarization_computation_arguments arguments = frame.record(actual);
    const Positional_matrices positional(frame);
    generate_polarization_output_data(arguments, positional.pointers(), false);

    // The block pixels: the baseline model writes them into a second set of
    // buffers.
    Output_buffers block_model(frame);
    four_lane_reference::write_block_pixels(frame.record(block_model), four_lane_reference::Block_form::baseline);

    ksi_reference::Frame_request request;
    request.rows = frame.rows;
    request.columns = frame.columns;
    request.input = frame.input.data();
    request.bit_depth = frame.bit_depth;
    request.output_maximum = frame.output_maximum;
    request.matrices = positional.matrices;
    const ksi_reference::Frame_outputs scalar_model = ksi_reference::evaluate_frame(request);

    for (unsigned row = 0; row < frame.rows; ++row)
        for (unsigned column = 0; column < frame.columns; ++column) {
            const bool block = four_lane_reference::is_block_pixel(frame.rows, frame.columns, row, column);
            const std::size_t at = std::size_t(row) * frame.columns + column;
            for (unsigned slot = 0; slot < 6; ++slot) {
                if (!frame.has(slot))
                    continue;
                bool same;
                if (slot == 0)
                    same = block ? same_elements(block_model.normalized, actual.normalized, 2 * at, 2)
                                 : ksi_reference::same_normalized(scalar_model.normalized[2 * at],
                                                                  actual.normalized[2 * at]) &&
                                       ksi_reference::same_normalized(scalar_model.normalized[2 * at + 1],
                                                                      actual.normalized[2 * at + 1]);
                else
                    same = (block ? block_model.images[slot][at] : scalar_model.slot[slot][at]) ==
                           actual.images[slot][at];
                if (!same) {
                    std::fprintf(stderr, "%s: slot %u differs at row %u, column %u (%s pixel)\n",
                                 frame.describe().c_str(), slot, row, column, block ? "block" : "scalar-stage");
                    std::abort();
                }
            }
        }
    return 0;
}
