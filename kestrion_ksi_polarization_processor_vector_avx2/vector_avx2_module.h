// The extension's entry points. The shared object exports the three C
// functions the library looks for; the rest is for the extension's own tests
// and benchmarks, through its internal static library.
#pragma once

#include "kernels/polarization_computation_arguments.h"

#define KSI_EXTENSION_EXPORT extern "C" __attribute__((visibility("default")))

// 0 when this processor and its operating system run the eight-lane form, and
// then the widest form is chosen for every later transform; 1 otherwise, and
// the library keeps its own kernels.
KSI_EXTENSION_EXPORT int kl_polarization_processor_vector_avx2_module_initialize();

// The whole transform of a validated record, in the width chosen by
// initialise. Called only after initialise returned 0; from any number of
// threads at once. Always returns 0.
KSI_EXTENSION_EXPORT int kl_polarization_processor_transform_vector_avx2(
    const Polarization_computation_arguments& arguments, const Calibration_matrices& matrices);

// Nothing to release: the choice stays as it is until the object is unloaded.
KSI_EXTENSION_EXPORT void kl_polarization_processor_vector_avx2_module_terminate();

namespace vector_avx2 {

// The widest block this processor and operating system can run: 16, 8, or 0
// when not even the eight-lane form can run.
unsigned supported_lane_width();

// The width initialise chose; 0 before it ran or when it refused.
unsigned chosen_lane_width();

// The transform in a given width, 8 or 16, whatever initialise chose. The
// processor must support that width.
void transform_in_lanes(unsigned lane_width, const Polarization_computation_arguments& arguments,
                        const Calibration_matrices& matrices);

}  // namespace vector_avx2
