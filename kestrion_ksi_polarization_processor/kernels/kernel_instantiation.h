// Explicit instantiation of the kernel family, one phase list at a time.
#pragma once

#include <type_traits>

#include "kernels/flag_combinations.h"
#include "kernels/image_sweep.h"
#include "kernels/vector_data_indices.h"

#define KSI_FLAG(value) std::integral_constant<bool, value>
#define KSI_INSTANTIATE_KERNEL(Indices, has_sse41, native_scale, has_normalized_pair, has_s0, has_s1, has_s2,      \
                               has_azimuth, has_dolp, even_rows, even_columns)                                   \
    template void generate_polarization_output_data_impl<                                                        \
        Indices, KSI_FLAG(native_scale), KSI_FLAG(has_normalized_pair), KSI_FLAG(has_s0), KSI_FLAG(has_s1),      \
        KSI_FLAG(has_s2), KSI_FLAG(has_azimuth), KSI_FLAG(has_dolp), KSI_FLAG(even_rows), KSI_FLAG(even_columns), \
        KSI_FLAG(has_sse41)>(const Polarization_computation_arguments&, const Calibration_matrices&);

// All 1024 kernels of one phase list.
#define KSI_INSTANTIATE_KERNELS_OF_PHASE(Indices)              \
    KSI_EACH_FLAG_9(KSI_INSTANTIATE_KERNEL, Indices, false) \
    KSI_EACH_FLAG_9(KSI_INSTANTIATE_KERNEL, Indices, true)

// The same family with the block in a form of the AVX2 extension.
#define KSI_INSTANTIATE_KERNEL_IN_FORM(Form, Indices, native_scale, has_normalized_pair, has_s0, has_s1, has_s2,    \
                                       has_azimuth, has_dolp, even_rows, even_columns)                             \
    template void generate_polarization_output_data_in_form<                                                      \
        Form, Indices, KSI_FLAG(native_scale), KSI_FLAG(has_normalized_pair), KSI_FLAG(has_s0), KSI_FLAG(has_s1), \
        KSI_FLAG(has_s2), KSI_FLAG(has_azimuth), KSI_FLAG(has_dolp), KSI_FLAG(even_rows), KSI_FLAG(even_columns)>( \
        const Polarization_computation_arguments&, const Calibration_matrices&);

// All 512 kernels of one phase list in one form.
#define KSI_INSTANTIATE_KERNELS_IN_FORM(Form, Indices) KSI_EACH_FLAG_9(KSI_INSTANTIATE_KERNEL_IN_FORM, Form, Indices)
