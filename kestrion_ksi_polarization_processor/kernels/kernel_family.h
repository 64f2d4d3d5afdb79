// The whole-image kernel family: one kernel per phase list and per setting of
// ten flags, each an std::integral_constant<bool, ...>. The definitions live
// in image_sweep.h and are instantiated explicitly in the kernel translation
// units, spread over several files to keep the build parallel.
//
// The AVX2 extension builds the same family with the block in its own wider
// forms: generate_polarization_output_data_in_form, with the form in place of
// the SSE4.1 flag.
#pragma once

#include "kernels/polarization_computation_arguments.h"

template <class Indices, class Native_scale, class Has_normalized_pair, class Has_s0, class Has_s1, class Has_s2,
          class Has_azimuth, class Has_dolp, class Even_rows, class Even_columns, class Has_sse41>
void generate_polarization_output_data_impl(const Polarization_computation_arguments& arguments,
                                            const Calibration_matrices& matrices);

template <class Form, class Indices, class Native_scale, class Has_normalized_pair, class Has_s0, class Has_s1,
          class Has_s2, class Has_azimuth, class Has_dolp, class Even_rows, class Even_columns>
void generate_polarization_output_data_in_form(const Polarization_computation_arguments& arguments,
                                               const Calibration_matrices& matrices);
