// Entry to the kernel family: picks the one whole-image kernel that matches
// the frame's phase, scale, present slots, size parities and instruction set.
#pragma once

#include "kernels/polarization_computation_arguments.h"

void generate_polarization_output_data(const Polarization_computation_arguments& arguments,
                                       const Calibration_matrices& matrices, bool has_sse41);
