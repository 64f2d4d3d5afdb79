// Whole-image kernels with the block in eight lanes (AVX2). They only call the row-pair
// functions and the scalar stages: built without any vector extension.
#include "lane_widths.h"

#include "kernels/kernel_instantiation.h"

KSI_INSTANTIATE_KERNELS_IN_FORM(Avx2_form, Phase_90_indices)
