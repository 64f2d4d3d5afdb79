// Loader for an optional extension that runs the whole transform in another
// shared object. A module that could not load or initialise its extension
// has `failed` set, and the local kernels serve every frame.
#pragma once

#include "kernels/polarization_computation_arguments.h"

class Vector_polarization_processor_module {
public:
    using Initialize_function = int (*)();
    using Transform_function = int (*)(const Polarization_computation_arguments&, const Calibration_matrices&);
    using Terminate_function = void (*)();

    Vector_polarization_processor_module(const char* library_base_name, const char* initialize_symbol,
                                         const char* transform_symbol, const char* terminate_symbol);
    ~Vector_polarization_processor_module();
    Vector_polarization_processor_module(const Vector_polarization_processor_module&) = delete;
    Vector_polarization_processor_module& operator=(const Vector_polarization_processor_module&) = delete;

    void* library_handle = nullptr;
    bool failed = false;
    Initialize_function initialize_function = nullptr;
    Transform_function transform_function = nullptr;
    Terminate_function terminate_function = nullptr;
};

class Vector_avx2_polarization_processor_module : public Vector_polarization_processor_module {
public:
    Vector_avx2_polarization_processor_module();
};
