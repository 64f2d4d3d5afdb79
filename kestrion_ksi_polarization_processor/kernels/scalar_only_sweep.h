// The sweep without four-lane blocks: the scalar stages write every pixel.
// For benchmarks and tests only; the exported functions never reach it.
#pragma once

#include "kernels/polarization_computation_arguments.h"

void generate_polarization_output_data_scalar_only(const Polarization_computation_arguments& arguments,
                                                   const Calibration_matrices& matrices);
