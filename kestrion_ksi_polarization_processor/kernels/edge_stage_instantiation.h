// Explicit instantiation of the scalar stages, one value of the scale flag at
// a time.
#pragma once

#include "kernels/edge_stages_impl.h"
#include "kernels/flag_combinations.h"

#define KSI_INSTANTIATE_SCALAR_COLUMNS(native_scale, has_normalized_pair, has_s0, has_s1, has_s2, has_azimuth,      \
                                       has_dolp, even_columns)                                                      \
    template void generate_scalar_columns<native_scale, has_normalized_pair, has_s0, has_s1, has_s2, has_azimuth,  \
                                          has_dolp, even_columns>(const Polarization_computation_arguments&,       \
                                                                  const Calibration_matrices&,                     \
                                                                  Image_buffer_overlays&, unsigned, unsigned);

#define KSI_INSTANTIATE_LAST_ROW_AND_COLUMN(native_scale, has_normalized_pair, has_s0, has_s1, has_s2, has_azimuth, \
                                            has_dolp, even_rows, even_columns)                                      \
    template void generate_last_row_and_column<native_scale, has_normalized_pair, has_s0, has_s1, has_s2,          \
                                               has_azimuth, has_dolp, even_rows, even_columns>(                    \
        const Polarization_computation_arguments&, const Calibration_matrices&, Image_buffer_overlays&, unsigned);
