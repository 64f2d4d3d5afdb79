// Kestrion KSI polarization processor: header-only C++ interface over the C
// functions of kestrion_ksi_polarization_processor.h.
//
//   kestrion::polarization::Module module;        // initialise ... terminate
//   kestrion::polarization::Processor processor;  // create ... destroy
//   processor.transform(frame, parameters, outputs);
//
// Every non-zero status of the library becomes a Status_error that names the
// code; views whose sizes disagree with the frame are refused with
// std::invalid_argument before the library is called, so nothing is written.
#ifndef KESTRION_KSI_POLARIZATION_PROCESSOR_HPP
#define KESTRION_KSI_POLARIZATION_PROCESSOR_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "kestrion_ksi_polarization_processor.h"

namespace kestrion::polarization {

// The enumerator name of a status code, e.g. "status_invalid_width".
inline const char* status_name(int status) noexcept
{
    switch (status) {
    case status_success: return "status_success";
    case status_failure: return "status_failure";
    case status_module_not_initialized: return "status_module_not_initialized";
    case status_out_of_memory: return "status_out_of_memory";
    case status_null_handle: return "status_null_handle";
    case status_null_input: return "status_null_input";
    case status_no_output: return "status_no_output";
    case status_output_is_input: return "status_output_is_input";
    case status_duplicate_output: return "status_duplicate_output";
    case status_invalid_phase: return "status_invalid_phase";
    case status_zero_output_maximum: return "status_zero_output_maximum";
    case status_invalid_width: return "status_invalid_width";
    case status_invalid_height: return "status_invalid_height";
    case status_invalid_bit_depth: return "status_invalid_bit_depth";
    default: return "unknown status";
    }
}

// What a status code means, in words, e.g. "width is 1 or less".
inline const char* status_meaning(int status) noexcept
{
    switch (status) {
    case status_success: return "success";
    case status_failure: return "the processor lacks SSE, or an unexpected error occurred";
    case status_module_not_initialized: return "the module is not initialised";
    case status_out_of_memory: return "memory allocation failed";
    case status_null_handle: return "the processor handle is null";
    case status_null_input: return "the input frame is null";
    case status_no_output: return "no output was requested";
    case status_output_is_input: return "an output buffer is the input buffer";
    case status_duplicate_output: return "two outputs share one buffer";
    case status_invalid_phase: return "the polar phase is greater than 3";
    case status_zero_output_maximum: return "the output maximum is 0";
    case status_invalid_width: return "width is 1 or less";
    case status_invalid_height: return "height is 1 or less";
    case status_invalid_bit_depth: return "bit depth is greater than 16";
    default: return "not a status of this library";
    }
}

// A refusal of the library: which function, and the code it returned.
class Status_error : public std::runtime_error {
public:
    Status_error(const char* function, int status)
        : std::runtime_error(std::string(function) + ": " + status_name(status) + " (" + std::to_string(status) +
                             "): " + status_meaning(status)),
          status_(status)
    {
    }
    int status() const noexcept { return status_; }

private:
    int status_;
};

inline void check_status(const char* function, int status)
{
    if (status != status_success)
        throw Status_error(function, status);
}

// The polarizer over the sensor's top-left pixel.
enum class Phase : std::int32_t {
    degrees_0 = polar_phase_0,
    degrees_45 = polar_phase_45,
    degrees_90 = polar_phase_90,
    degrees_135 = polar_phase_135,
};

// A row-major image without row gaps: width x height elements, or for the
// normalized pair 2 x width x height floats.
template <class Element>
struct Image_view {
    Element* data = nullptr;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

using Frame_view = Image_view<const std::uint16_t>;

// The six outputs; a view with null data is not computed.
struct Output_views {
    Image_view<float> normalized;  // S1/S0, S2/S0 per pixel
    Image_view<std::uint16_t> s0;
    Image_view<std::uint16_t> s1;
    Image_view<std::uint16_t> s2;
    Image_view<std::uint16_t> azimuth;
    Image_view<std::uint16_t> dolp;
};

struct Transform_parameters {
    Phase phase = Phase::degrees_0;
    std::int32_t origin_x = 0;  // sensor column of the frame's first pixel
    std::int32_t origin_y = 0;  // sensor row of the frame's first pixel
    std::uint32_t bit_depth = 16;
    std::uint16_t output_maximum = 65535;
};

// Four row-major 4x4 matrices, for the polarizers at 0, 45, 90 and 135 degrees.
using Calibration_matrix = std::array<float, 16>;
using Calibration = std::array<Calibration_matrix, 4>;

// Counts the library's module up for its lifetime; any number may exist.
class Module {
public:
    Module() { check_status("kl_polarization_processor_module_initialize", kl_polarization_processor_module_initialize()); }
    ~Module() { kl_polarization_processor_module_terminate(); }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
};

// One processor handle. Transforms may run on several threads at once;
// setting the calibration must not overlap a transform.
class Processor {
public:
    Processor()
    {
        check_status("kl_polarization_processor_create_polarization_processor",
                     kl_polarization_processor_create_polarization_processor(&handle_));
    }
    ~Processor()
    {
        if (handle_ != nullptr)
            kl_polarization_processor_destroy_polarization_processor(handle_);
    }
    Processor(Processor&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Processor& operator=(Processor&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    void* handle() const noexcept { return handle_; }

    Calibration calibration() const
    {
        Calibration matrices{};
        check_status("kl_polarization_processor_get_custom_calibration_coefficients",
                     kl_polarization_processor_get_custom_calibration_coefficients(
                         handle_, matrices[0].data(), matrices[1].data(), matrices[2].data(), matrices[3].data()));
        return matrices;
    }

    void set_calibration(const Calibration& matrices)
    {
        check_status("kl_polarization_processor_set_custom_calibration_coefficients",
                     kl_polarization_processor_set_custom_calibration_coefficients(
                         handle_, matrices[0].data(), matrices[1].data(), matrices[2].data(), matrices[3].data()));
    }

    void transform(const Frame_view& frame, const Transform_parameters& parameters, const Output_views& outputs) const
    {
        check_size("normalized", outputs.normalized, frame);
        check_size("s0", outputs.s0, frame);
        check_size("s1", outputs.s1, frame);
        check_size("s2", outputs.s2, frame);
        check_size("azimuth", outputs.azimuth, frame);
        check_size("dolp", outputs.dolp, frame);
        check_status("kl_polarization_processor_transform",
                     kl_polarization_processor_transform(
                         handle_, static_cast<std::int32_t>(parameters.phase), frame.data, parameters.origin_x,
                         parameters.origin_y, frame.width, frame.height, parameters.bit_depth,
                         parameters.output_maximum, outputs.normalized.data, outputs.s0.data, outputs.s1.data,
                         outputs.s2.data, outputs.azimuth.data, outputs.dolp.data));
    }

private:
    template <class Element>
    static void check_size(const char* name, const Image_view<Element>& output, const Frame_view& frame)
    {
        if (output.data != nullptr && (output.width != frame.width || output.height != frame.height))
            throw std::invalid_argument(std::string("output ") + name + " is " + std::to_string(output.width) + "x" +
                                        std::to_string(output.height) + ", the frame " +
                                        std::to_string(frame.width) + "x" + std::to_string(frame.height));
    }

    void* handle_ = nullptr;
};

}  // namespace kestrion::polarization

#endif
