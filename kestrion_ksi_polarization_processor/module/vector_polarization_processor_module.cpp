#include "module/vector_polarization_processor_module.h"

#include "module/shared_library.h"

Vector_polarization_processor_module::Vector_polarization_processor_module(const char* library_base_name,
                                                                           const char* initialize_symbol,
                                                                           const char* transform_symbol,
                                                                           const char* terminate_symbol)
{
    library_handle = load_shared_library(library_base_name);
    if (library_handle == nullptr) {
        failed = true;
        return;
    }
    initialize_function = reinterpret_cast<Initialize_function>(get_function_handle(library_handle, initialize_symbol));
    if (initialize_function == nullptr) {
        failed = true;
        return;
    }
    transform_function = reinterpret_cast<Transform_function>(get_function_handle(library_handle, transform_symbol));
    if (transform_function == nullptr) {
        failed = true;
        return;
    }
    terminate_function = reinterpret_cast<Terminate_function>(get_function_handle(library_handle, terminate_symbol));
    if (terminate_function == nullptr) {
        failed = true;
        return;
    }
    if (initialize_function() != 0)
        failed = true;
}

Vector_polarization_processor_module::~Vector_polarization_processor_module()
{
    // An extension whose initialise refused is still told to terminate.
    if (terminate_function != nullptr)
        terminate_function();
    initialize_function = nullptr;
    transform_function = nullptr;
    terminate_function = nullptr;
    if (library_handle != nullptr)
        unload_shared_library(library_handle);
}

Vector_avx2_polarization_processor_module::Vector_avx2_polarization_processor_module()
    : Vector_polarization_processor_module("kestrion_ksi_polarization_processor_vector_avx2",
                                           "kl_polarization_processor_vector_avx2_module_initialize",
                                           "kl_polarization_processor_transform_vector_avx2",
                                           "kl_polarization_processor_vector_avx2_module_terminate")
{
}
