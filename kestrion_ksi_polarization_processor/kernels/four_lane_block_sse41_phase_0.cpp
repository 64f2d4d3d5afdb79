// Built for SSE4.1: reached only from kernels chosen for such processors.
#include "kernels/sse41_form.h"
#include "kernels/four_lane_block_instantiation.h"

KSI_INSTANTIATE_ROW_PAIRS(Phase_0_indices, Sse41_form)
