#include "kernels/baseline_form.h"
#include "kernels/four_lane_block_instantiation.h"

KSI_INSTANTIATE_ROW_PAIRS(Phase_135_indices, Baseline_form)
