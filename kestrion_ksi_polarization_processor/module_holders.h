// The two process-wide holders, counted by module initialise and terminate.
#pragma once

#include "module/ksi_log_object.h"
#include "module/vector_polarization_processor_module.h"
#include "unique_ptr_reference_counted.h"

extern unique_ptr_reference_counted<Ksi_log_object> logger;
extern unique_ptr_reference_counted<Vector_avx2_polarization_processor_module> vector_avx2_module;
