#include "cpu_features.h"

#include <cpuid.h>

#include <cstdint>

namespace ksi_cli {
namespace {

std::uint64_t extended_control_register_0()
{
    std::uint32_t low = 0, high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (std::uint64_t{high} << 32) | low;
}

}  // namespace

Cpu_features detect_cpu_features()
{
    Cpu_features features;
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0)
        return features;
    features.sse41 = (ecx & bit_SSE4_1) != 0;
    const bool os_uses_xsave = (ecx & bit_OSXSAVE) != 0;
    if (os_uses_xsave) {
        const std::uint64_t xcr0 = extended_control_register_0();
        features.os_saves_avx = (xcr0 & 0x6) == 0x6;
        features.os_saves_avx512 = (xcr0 & 0xE6) == 0xE6;
    }
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0) {
        features.avx2 = (ebx & bit_AVX2) != 0;
        features.avx512f = (ebx & bit_AVX512F) != 0;
        features.avx512bw = (ebx & bit_AVX512BW) != 0;
        features.avx512dq = (ebx & bit_AVX512DQ) != 0;
        features.avx512vl = (ebx & bit_AVX512VL) != 0;
    }
    return features;
}

}  // namespace ksi_cli
