// The object behind a processor handle: four calibration matrices and their
// four phase-indexed views, plus what decides between the AVX2 extension and
// the local kernels.
#pragma once

#include "kernels/polarization_computation_arguments.h"
#include "module/vector_polarization_processor_module.h"
#include "unique_ptr_reference_counted.h"

class kestrion_ksi_polarization_processor_obj {
public:
    kestrion_ksi_polarization_processor_obj(
        bool has_avx2, unique_ptr_reference_counted<Vector_avx2_polarization_processor_module>* vector_module);
    // The phase views point into the object itself.
    kestrion_ksi_polarization_processor_obj(const kestrion_ksi_polarization_processor_obj&) = delete;
    kestrion_ksi_polarization_processor_obj& operator=(const kestrion_ksi_polarization_processor_obj&) = delete;

    void transform(Polarization_computation_arguments& arguments, bool has_sse41);

    Calibration_matrix matrix_0;
    Calibration_matrix matrix_45;
    Calibration_matrix matrix_90;
    Calibration_matrix matrix_135;
    Calibration_matrices phase_matrices[4];
    bool has_avx2;
    // The holder, not the module: each transform sees the module of the moment.
    unique_ptr_reference_counted<Vector_avx2_polarization_processor_module>* vector_module;
};
