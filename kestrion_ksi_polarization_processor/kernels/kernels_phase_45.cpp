#include "kernels/kernel_instantiation.h"

KSI_INSTANTIATE_KERNELS_OF_PHASE(Phase_45_indices)
