#include "kestrion_ksi_polarization_processor.h"

#include <chrono>
#include <cstring>
#include <new>

#include <cpuid.h>

#include "kernels/generate_polarization_output_data.h"
#include "kestrion_ksi_polarization_processor_obj.h"
#include "module_holders.h"

// Declared in this order so that at exit the extension goes first and the
// log last.
unique_ptr_reference_counted<Ksi_log_object> logger;
unique_ptr_reference_counted<Vector_avx2_polarization_processor_module> vector_avx2_module;

namespace {

// Release identification, kept as plain data for tools that scan binaries.
__attribute__((used)) const char version_id[] =
    "$Id: kestrion_ksi_polarization_processor.dll x86 Release  Version = 0.24.0.0_98c1bb0 2019-06-26T11:30:52 $";

const char source_path[] = "kestrion_ksi_polarization_processor/kestrion_ksi_polarization_processor";
const char error_prefix[] = "ERROR: ";

struct Cpuid_registers {
    unsigned eax, ebx, ecx, edx;
};

Cpuid_registers query_cpuid(unsigned leaf)
{
    Cpuid_registers r;
    __cpuid(leaf, r.eax, r.ebx, r.ecx, r.edx);
    return r;
}

Cpuid_registers query_cpuid(unsigned leaf, unsigned subleaf)
{
    Cpuid_registers r;
    __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
    return r;
}

constexpr unsigned leaf_1_edx_sse = 1u << 25;
constexpr unsigned leaf_1_edx_sse2 = 1u << 26;
constexpr unsigned leaf_1_ecx_sse41 = 1u << 19;
constexpr unsigned leaf_7_ebx_avx2 = 1u << 5;

bool processor_has_sse41()
{
    if ((query_cpuid(1).edx & leaf_1_edx_sse2) == 0)
        return false;
    return (query_cpuid(1).ecx & leaf_1_ecx_sse41) != 0;
}

constexpr Calibration_matrix default_matrix_0 = {1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0, 0};
constexpr Calibration_matrix default_matrix_45 = {1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1, 0, 0, 0, 0};
constexpr Calibration_matrix default_matrix_90 = {1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0, 0, 0, 0, 0};
constexpr Calibration_matrix default_matrix_135 = {1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1, 0, 0, 0, 0};

// Phase of the region's first pixel from the sensor phase and the parity of
// the region's origin. The parity is the truncating remainder, so a negative
// odd coordinate counts as "both" whatever the other one is.
std::int32_t rebase_phase(std::int32_t polar_phase, std::int32_t origin_x, std::int32_t origin_y)
{
    enum { odd_x_only, odd_y_only, odd_both };
    static constexpr std::int32_t rebased[3][4] = {
        {3, 2, 1, 0},  // odd x only
        {1, 0, 3, 2},  // odd y only
        {2, 3, 0, 1},  // both
    };
    const std::int32_t rx = origin_x % 2;
    const std::int32_t ry = origin_y % 2;
    if (rx == 0 && ry == 0)
        return polar_phase;
    const int shift = rx == 1 && ry == 0 ? odd_x_only : rx == 0 && ry == 1 ? odd_y_only : odd_both;
    return rebased[shift][polar_phase >= 0 ? polar_phase : 0];
}

// Logs the duration of a transform on every exit after its start.
class Timing_scope {
public:
    explicit Timing_scope(Ksi_log_object* log) : log(log), start(std::chrono::system_clock::now()) {}
    ~Timing_scope() noexcept(false)
    {
        const auto elapsed = std::chrono::system_clock::now() - start;
        const std::int64_t nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count();
        log->log(KSI_LOG_PRIORITY_TIMING, source_path, __LINE__, "kl_polarization_processor_transform",
                 "%s takes %f microseconds.", "transform", double(nanoseconds / 1000));
    }
    Timing_scope(const Timing_scope&) = delete;
    Timing_scope& operator=(const Timing_scope&) = delete;

private:
    Ksi_log_object* log;
    std::chrono::system_clock::time_point start;
};

Ksi_log_object* module_log() { return logger.pointer.get(); }

void copy_matrix(Calibration_matrix& destination, const float* source)
{
    if (source != nullptr)
        std::memmove(destination.data(), source, sizeof(Calibration_matrix));
}

void copy_matrix(float* destination, const Calibration_matrix& source)
{
    if (destination != nullptr)
        std::memmove(destination, source.data(), sizeof(Calibration_matrix));
}

}  // namespace

kestrion_ksi_polarization_processor_obj::kestrion_ksi_polarization_processor_obj(
    bool has_avx2, unique_ptr_reference_counted<Vector_avx2_polarization_processor_module>* vector_module)
    : matrix_0(default_matrix_0),
      matrix_45(default_matrix_45),
      matrix_90(default_matrix_90),
      matrix_135(default_matrix_135),
      phase_matrices{
          {&matrix_0, &matrix_135, &matrix_45, &matrix_90},
          {&matrix_45, &matrix_90, &matrix_0, &matrix_135},
          {&matrix_90, &matrix_45, &matrix_135, &matrix_0},
          {&matrix_135, &matrix_0, &matrix_90, &matrix_45},
      },
      has_avx2(has_avx2),
      vector_module(vector_module)
{
}

void kestrion_ksi_polarization_processor_obj::transform(Polarization_computation_arguments& arguments,
                                                        bool has_sse41)
{
    Vector_avx2_polarization_processor_module* module = vector_module->pointer.get();
    const std::int32_t phase = arguments.polar_phase;
    const Calibration_matrices& matrices = phase == 2 ? phase_matrices[2]
                                           : phase == 3 ? phase_matrices[3]
                                           : phase == 1 ? phase_matrices[1]
                                                        : phase_matrices[0];
    if (!module->failed && has_avx2) {
        module->transform_function(arguments, matrices);
        return;
    }
    generate_polarization_output_data(arguments, matrices, has_sse41);
}

extern "C" {

int kl_polarization_processor_module_initialize(void)
{
    logger.count_up();
    vector_avx2_module.count_up();
    return status_success;
}

int kl_polarization_processor_module_terminate(void)
{
    vector_avx2_module.count_down();
    logger.count_down();
    return status_success;
}

int kl_polarization_processor_create_polarization_processor(void** processor)
{
    Ksi_log_object* log = module_log();
    if (log == nullptr)
        return status_module_not_initialized;

    if ((query_cpuid(1).edx & leaf_1_edx_sse) == 0) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__, "kl_polarization_processor_create_polarization_processor",
                 "SSE is required for this component but is not supported on this CPU.");
        return status_failure;
    }
    const std::int32_t signature = std::int32_t(query_cpuid(1).eax);
    query_cpuid(0x80000000u);
    bool has_avx2 = false;
    // The gate reads the processor signature of leaf 1, not the highest leaf
    // of leaf 0; every processor with a signature above 6 passes it.
    if (signature > 6)
        has_avx2 = (query_cpuid(7, 0).ebx & leaf_7_ebx_avx2) != 0;

    try {
        *processor = new kestrion_ksi_polarization_processor_obj(has_avx2, &vector_avx2_module);
    } catch (const std::bad_alloc&) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__, "kl_polarization_processor_create_polarization_processor",
                 "Memory allocation failure when trying to create a polar processor instance!");
        return status_out_of_memory;
    } catch (...) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__, "kl_polarization_processor_create_polarization_processor",
                 "An unknown error occurred when trying to create a polar_processor instance!");
        return status_failure;
    }
    return status_success;
}

int kl_polarization_processor_destroy_polarization_processor(void* processor)
{
    Ksi_log_object* log = module_log();
    if (log == nullptr)
        return status_module_not_initialized;
    if (processor == nullptr) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__, "kl_polarization_processor_destroy_polarization_processor",
                 "%s The specified color processor handle is NULL!", error_prefix);
        return status_null_handle;
    }
    delete static_cast<kestrion_ksi_polarization_processor_obj*>(processor);
    return status_success;
}

int kl_polarization_processor_set_custom_calibration_coefficients(void* processor, const float* matrix_0,
                                                                  const float* matrix_45, const float* matrix_90,
                                                                  const float* matrix_135)
{
    Ksi_log_object* log = module_log();
    if (log == nullptr)
        return status_module_not_initialized;
    if (processor == nullptr) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__,
                 "kl_polarization_processor_set_custom_calibration_coefficients",
                 "%s The specified polarization processor handle is NULL!", error_prefix);
        return status_null_handle;
    }
    auto& object = *static_cast<kestrion_ksi_polarization_processor_obj*>(processor);
    copy_matrix(object.matrix_0, matrix_0);
    copy_matrix(object.matrix_45, matrix_45);
    copy_matrix(object.matrix_90, matrix_90);
    copy_matrix(object.matrix_135, matrix_135);
    return status_success;
}

int kl_polarization_processor_get_custom_calibration_coefficients(void* processor, float* matrix_0, float* matrix_45,
                                                                  float* matrix_90, float* matrix_135)
{
    Ksi_log_object* log = module_log();
    if (log == nullptr)
        return status_module_not_initialized;
    if (processor == nullptr) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__,
                 "kl_polarization_processor_get_custom_calibration_coefficients",
                 "%s The specified polarization processor handle is NULL!", error_prefix);
        return status_null_handle;
    }
    const auto& object = *static_cast<const kestrion_ksi_polarization_processor_obj*>(processor);
    copy_matrix(matrix_0, object.matrix_0);
    copy_matrix(matrix_45, object.matrix_45);
    copy_matrix(matrix_90, object.matrix_90);
    copy_matrix(matrix_135, object.matrix_135);
    return status_success;
}

int kl_polarization_processor_transform(void* processor, int32_t polar_phase, const uint16_t* input,
                                        int32_t origin_x, int32_t origin_y, int32_t width, int32_t height,
                                        uint32_t bit_depth, uint16_t output_maximum, float* normalized_stokes,
                                        uint16_t* s0_image, uint16_t* s1_image, uint16_t* s2_image,
                                        uint16_t* azimuth_image, uint16_t* dolp_image)
{
    Ksi_log_object* log = module_log();
    if (log == nullptr)
        return status_module_not_initialized;
    Timing_scope timing(log);

    if (processor == nullptr) {
        log->log(KSI_LOG_PRIORITY_ERROR, source_path, __LINE__, "kl_polarization_processor_transform",
                 "%s The specified polarization processor handle is NULL!", error_prefix);
        return status_null_handle;
    }
    if (polar_phase > 3)
        return status_invalid_phase;
    const std::int32_t phase = rebase_phase(polar_phase, origin_x, origin_y);
    if (input == nullptr)
        return status_null_input;

    const void* const outputs[6] = {normalized_stokes, s0_image, s1_image, s2_image, azimuth_image, dolp_image};
    bool any_output = false;
    for (const void* output : outputs)
        any_output = any_output || output != nullptr;
    if (!any_output)
        return status_no_output;
    for (const void* output : outputs)
        if (output != nullptr && output == input)
            return status_output_is_input;
    for (int i = 0; i < 6; ++i)
        for (int j = i + 1; j < 6; ++j)
            if (outputs[i] != nullptr && outputs[i] == outputs[j])
                return status_duplicate_output;
    if (width <= 1)
        return status_invalid_width;
    if (height <= 1)
        return status_invalid_height;
    if (output_maximum == 0)
        return status_zero_output_maximum;
    if (bit_depth > 16)
        return status_invalid_bit_depth;

    const std::uint32_t input_maximum = (std::uint32_t(1) << bit_depth) - 1;
    Polarization_computation_arguments arguments = {
        std::uint32_t(height),
        std::uint32_t(width),
        phase,
        input,
        bit_depth,
        float(input_maximum),
        float(output_maximum),
        std::uint32_t(output_maximum),
        normalized_stokes,
        s0_image,
        s1_image,
        s2_image,
        azimuth_image,
        dolp_image,
    };
    static_cast<kestrion_ksi_polarization_processor_obj*>(processor)->transform(arguments, processor_has_sse41());
    return status_success;
}

}  // extern "C"
