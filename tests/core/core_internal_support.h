// Helpers for the core tests that reach the library's internals: building the
// computation record and the matrix set by hand, and running the sweep
// without four-lane blocks. Only for executables linked against the internal
// library.
#pragma once

#include "core_test_support.h"
#include "kernels/generate_polarization_output_data.h"
#include "kernels/polarization_computation_arguments.h"
#include "kernels/scalar_only_sweep.h"

namespace core_test {

static_assert(std::is_same<Calibration_matrix, ksi_reference::Matrix>::value,
              "the record's matrix type is sixteen floats");

// The record a transform builds for this frame: rows (the height) first, the
// phase already re-based, input maximum 2^bit_depth - 1.
inline Polarization_computation_arguments record_for(const Frame_case& frame, Output_arena& arena)
{
    Polarization_computation_arguments record{};
    record.rows = frame.rows;
    record.columns = frame.columns;
    record.polar_phase = frame.region_phase();
    record.input = frame.input.data();
    record.bit_depth = frame.bit_depth;
    record.input_maximum = float(ksi_reference::input_maximum_integer(frame.bit_depth));
    record.output_maximum = float(frame.output_maximum);
    record.output_maximum_integer = frame.output_maximum;
    record.normalized_stokes = arena.normalized();
    record.s0_image = arena.slot(1);
    record.s1_image = arena.slot(2);
    record.s2_image = arena.slot(3);
    record.azimuth_image = arena.slot(4);
    record.dolp_image = arena.slot(5);
    return record;
}

// Matrix pointers by position: even/even, even/odd, odd/even, odd/odd.
inline Calibration_matrices matrix_set_for(const Matrix_set& positional)
{
    return Calibration_matrices{&positional[0], &positional[1], &positional[2], &positional[3]};
}

// Runs the sweep without blocks on poisoned buffers and compares every pixel
// with the reference, plus all guard zones and absent slots.
inline std::size_t check_scalar_only_frame(const Frame_case& frame, const std::string& context,
                                           unsigned char fill = 0xA5)
{
    Output_arena arena(frame.pixels(), frame.slots, fill);
    const Polarization_computation_arguments record = record_for(frame, arena);
    const Matrix_set positional = frame.positional();
    const Calibration_matrices matrices = matrix_set_for(positional);
    generate_polarization_output_data_scalar_only(record, matrices);
    const auto expected = reference_outputs(frame);
    std::size_t mismatches = compare_with_reference(frame, arena, expected, false, context);
    if (!check_untouched(arena, frame, context))
        ++mismatches;
    return mismatches;
}

}  // namespace core_test
