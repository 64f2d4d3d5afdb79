// Built for sixteen lanes (AVX-512): reached only from kernels of that width.
#include "avx512_form.h"
#include "kernels/four_lane_block_instantiation.h"

KSI_INSTANTIATE_ROW_PAIRS(Phase_90_indices, Avx512_form)
