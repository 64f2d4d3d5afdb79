// Built for eight lanes (AVX2): reached only from kernels of that width.
#include "avx2_form.h"
#include "kernels/four_lane_block_instantiation.h"

KSI_INSTANTIATE_ROW_PAIRS(Phase_0_indices, Avx2_form)
