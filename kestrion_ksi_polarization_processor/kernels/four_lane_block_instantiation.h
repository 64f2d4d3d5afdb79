// Explicit instantiation of the block's row-pair functions, one phase list
// and one instruction form at a time.
#pragma once

#include "kernels/flag_combinations.h"
#include "kernels/four_lane_block_impl.h"
#include "kernels/vector_data_indices.h"

#define KSI_INSTANTIATE_ROW_PAIR(Indices, Form, native_scale, has_normalized_pair, has_s0, has_s1, has_s2,          \
                                 has_azimuth, has_dolp)                                                           \
    template void generate_four_lane_row_pair<Indices, native_scale, has_normalized_pair, has_s0, has_s1, has_s2, \
                                              has_azimuth, has_dolp, Form>(                                       \
        const Four_lane_constants&, const Polarization_computation_arguments&, unsigned, unsigned);

#define KSI_INSTANTIATE_ROW_PAIRS(Indices, Form) KSI_EACH_FLAG_7(KSI_INSTANTIATE_ROW_PAIR, Indices, Form)
