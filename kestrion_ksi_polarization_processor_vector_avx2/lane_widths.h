// The extension's two forms of the block, by name only: the translation units
// that merely call their kernels need no instruction beyond SSE2.
#pragma once

#include "kernels/polarization_computation_arguments.h"

struct Avx2_form;    // eight lanes, avx2_form.h
struct Avx512_form;  // sixteen lanes, avx512_form.h

// The whole transform with the block in the form's width, for a record that
// passed the library's validation.
template <class Form>
void generate_polarization_output_data_in_lanes(const Polarization_computation_arguments& arguments,
                                                const Calibration_matrices& matrices);
