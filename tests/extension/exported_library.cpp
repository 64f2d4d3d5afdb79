#include "exported_library.h"

#include <dlfcn.h>

namespace extension_test_support {

namespace {

template <class Function>
void resolve(void* handle, const char* name, Function& function, std::string& error)
{
    function = reinterpret_cast<Function>(dlsym(handle, name));
    if (function == nullptr && error.empty())
        error = std::string("no symbol ") + name;
}

}  // namespace

Exported_library::Exported_library(const std::string& file)
{
    handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        const char* message = dlerror();
        error_ = "cannot open " + file + ": " + (message != nullptr ? message : "unknown error");
        return;
    }
    resolve(handle_, "kl_polarization_processor_module_initialize", initialize_, error_);
    resolve(handle_, "kl_polarization_processor_module_terminate", terminate_, error_);
    resolve(handle_, "kl_polarization_processor_create_polarization_processor", create_, error_);
    resolve(handle_, "kl_polarization_processor_destroy_polarization_processor", destroy_, error_);
    resolve(handle_, "kl_polarization_processor_set_custom_calibration_coefficients", set_, error_);
    resolve(handle_, "kl_polarization_processor_transform", transform_, error_);
}

Exported_library::~Exported_library()
{
    if (processor_ != nullptr)
        destroy_(processor_);
    if (started_)
        terminate_();
    if (handle_ != nullptr)
        dlclose(handle_);
}

int Exported_library::start()
{
    const int initialized = initialize_();
    started_ = true;
    if (initialized != 0)
        return initialized;
    return create_(&processor_);
}

int Exported_library::set_coefficients(const Angle_matrices& matrices)
{
    return set_(processor_, matrices.matrix_0.data(), matrices.matrix_45.data(), matrices.matrix_90.data(),
                matrices.matrix_135.data());
}

int Exported_library::transform(const Frame& frame, Frame_outputs& o, std::int32_t sensor_phase,
                                std::int32_t origin_x, std::int32_t origin_y, std::uint32_t bit_depth,
                                std::uint16_t output_maximum) const
{
    return transform_(processor_, sensor_phase, frame.pixels.data(), origin_x, origin_y, std::int32_t(frame.columns),
                      std::int32_t(frame.rows), bit_depth, output_maximum, o.normalized(), o.image(1), o.image(2),
                      o.image(3), o.image(4), o.image(5));
}

bool extension_is_loaded()
{
    void* extension = dlopen("libkestrion_ksi_polarization_processor_vector_avx2.so", RTLD_LAZY | RTLD_NOLOAD);
    if (extension == nullptr)
        return false;
    dlclose(extension);
    return true;
}

}  // namespace extension_test_support
