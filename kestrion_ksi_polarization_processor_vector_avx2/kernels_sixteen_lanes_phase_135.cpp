// Whole-image kernels with the block in sixteen lanes (AVX-512). They only call the row-pair
// functions and the scalar stages: built without any vector extension.
#include "lane_widths.h"

#include "kernels/kernel_instantiation.h"

KSI_INSTANTIATE_KERNELS_IN_FORM(Avx512_form, Phase_135_indices)
