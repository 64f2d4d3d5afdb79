// Built without any vector extension: this file runs on every processor that
// can load the shared object, and decides whether the wide forms may run.
#include "vector_avx2_module.h"

#include <cpuid.h>

#include <cstdint>

#include "lane_widths.h"

namespace {

constexpr unsigned leaf_1_ecx_osxsave = 1u << 27;
constexpr unsigned leaf_1_ecx_avx = 1u << 28;
constexpr unsigned leaf_7_ebx_avx2 = 1u << 5;
constexpr unsigned leaf_7_ebx_avx512f = 1u << 16;
constexpr unsigned leaf_7_ebx_avx512dq = 1u << 17;
constexpr unsigned leaf_7_ebx_avx512bw = 1u << 30;
constexpr unsigned leaf_7_ebx_avx512vl = 1u << 31;

// XCR0: which register state the operating system saves and restores.
constexpr std::uint64_t xcr0_sse_and_avx = (1u << 1) | (1u << 2);                 // XMM, YMM
constexpr std::uint64_t xcr0_avx512 = (1u << 5) | (1u << 6) | (1u << 7);          // opmask, ZMM 0-15 upper, ZMM 16-31

std::uint64_t extended_control_register_0()
{
    // xgetbv is spelled out so that this file needs no -mxsave.
    std::uint32_t low = 0, high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (std::uint64_t(high) << 32) | low;
}

// Written once, by initialise, under the library's module lock; only read
// afterwards.
unsigned chosen_width = 0;

}  // namespace

namespace vector_avx2 {

unsigned supported_lane_width()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return 0;
    // Without OSXSAVE, xgetbv does not exist; without the YMM state the
    // operating system would lose the upper halves on a context switch.
    if ((ecx & leaf_1_ecx_osxsave) == 0 || (ecx & leaf_1_ecx_avx) == 0)
        return 0;
    const std::uint64_t xcr0 = extended_control_register_0();
    if ((xcr0 & xcr0_sse_and_avx) != xcr0_sse_and_avx)
        return 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) || (ebx & leaf_7_ebx_avx2) == 0)
        return 0;
    constexpr unsigned avx512 = leaf_7_ebx_avx512f | leaf_7_ebx_avx512dq | leaf_7_ebx_avx512bw | leaf_7_ebx_avx512vl;
    if ((ebx & avx512) == avx512 && (xcr0 & xcr0_avx512) == xcr0_avx512)
        return 16;
    return 8;
}

unsigned chosen_lane_width() { return chosen_width; }

void transform_in_lanes(unsigned lane_width, const Polarization_computation_arguments& arguments,
                        const Calibration_matrices& matrices)
{
    if (lane_width == 16)
        generate_polarization_output_data_in_lanes<Avx512_form>(arguments, matrices);
    else
        generate_polarization_output_data_in_lanes<Avx2_form>(arguments, matrices);
}

}  // namespace vector_avx2

int kl_polarization_processor_vector_avx2_module_initialize()
{
    chosen_width = vector_avx2::supported_lane_width();
    return chosen_width == 0 ? 1 : 0;
}

int kl_polarization_processor_transform_vector_avx2(const Polarization_computation_arguments& arguments,
                                                    const Calibration_matrices& matrices)
{
    vector_avx2::transform_in_lanes(chosen_width, arguments, matrices);
    return 0;
}

void kl_polarization_processor_vector_avx2_module_terminate() {}
