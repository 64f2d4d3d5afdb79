// The library's shared object opened by path, with its exported functions, so
// that a test can run the exported transform of a particular copy: the one
// in the build tree with the extension beside it, or a copy without.
#pragma once

#include <cstdint>
#include <string>

#include "kernel_test_support.h"

namespace extension_test_support {

using namespace kernel_test_support;

class Exported_library {
public:
    explicit Exported_library(const std::string& file);
    ~Exported_library();
    Exported_library(const Exported_library&) = delete;
    Exported_library& operator=(const Exported_library&) = delete;

    // Empty when every function was found, else what went wrong.
    const std::string& error() const { return error_; }

    // Module initialise and a processor, released in the destructor.
    int start();
    int set_coefficients(const Angle_matrices& matrices);
    int transform(const Frame& frame, Frame_outputs& outputs, std::int32_t sensor_phase, std::int32_t origin_x,
                  std::int32_t origin_y, std::uint32_t bit_depth, std::uint16_t output_maximum) const;

private:
    using Module_function = int (*)();
    using Create_function = int (*)(void**);
    using Destroy_function = int (*)(void*);
    using Set_function = int (*)(void*, const float*, const float*, const float*, const float*);
    using Transform_function = int (*)(void*, std::int32_t, const std::uint16_t*, std::int32_t, std::int32_t,
                                       std::int32_t, std::int32_t, std::uint32_t, std::uint16_t, float*,
                                       std::uint16_t*, std::uint16_t*, std::uint16_t*, std::uint16_t*,
                                       std::uint16_t*);

    void* handle_ = nullptr;
    void* processor_ = nullptr;
    bool started_ = false;
    std::string error_;
    Module_function initialize_ = nullptr;
    Module_function terminate_ = nullptr;
    Create_function create_ = nullptr;
    Destroy_function destroy_ = nullptr;
    Set_function set_ = nullptr;
    Transform_function transform_ = nullptr;
};

// Is the extension loaded into this process (by any library)?
bool extension_is_loaded();

}  // namespace extension_test_support
