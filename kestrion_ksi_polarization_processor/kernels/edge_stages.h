// The scalar stages of a frame: the columns of a row pair that no four-lane
// block writes, and the last one or two rows. They apply the calibration
// matrices and do not depend on the phase or the instruction set, so each
// exists once per output flag set and is shared by all kernels that have it.
// Their definitions live in edge_stages_impl.h and are compiled once, in the
// edge stage translation units.
#pragma once

#include "kernels/polarization_computation_arguments.h"

// The scalar column body from column `column` (even) of the row pair at `row`,
// then the end of the row pair: every pixel of rows row and row + 1 from
// `column` to the last column.
template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp, bool Even_columns>
void generate_scalar_columns(const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices,
                             Image_buffer_overlays& overlays, unsigned row, unsigned column);

// Every pixel of the rows from `row` to the last.
template <bool Native_scale, bool Has_normalized_pair, bool Has_s0, bool Has_s1, bool Has_s2, bool Has_azimuth,
          bool Has_dolp, bool Even_rows, bool Even_columns>
void generate_last_row_and_column(const Polarization_computation_arguments& arguments,
                                  const Calibration_matrices& matrices, Image_buffer_overlays& overlays, unsigned row);
