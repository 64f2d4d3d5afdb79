#include "kernels/edge_stage_instantiation.h"

KSI_EACH_FLAG_7(KSI_INSTANTIATE_SCALAR_COLUMNS, true)
