#include "kernels/edge_stage_instantiation.h"

KSI_EACH_FLAG_8(KSI_INSTANTIATE_LAST_ROW_AND_COLUMN, true)
