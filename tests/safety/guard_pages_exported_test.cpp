// Every buffer of the exported transform flush against an inaccessible page:
// a single element read or written outside the frame the caller describes
// ends the test with a fault. The library is a copy opened by path in a
// fresh directory, so exactly the companions a test puts beside it are found.
//
// GuardPagesExtension.* puts the built AVX2 extension beside the copy; it
// runs in the widest form the processor has (the internal tests force each
// width). GuardPagesEmulated.* runs only under `qemu-x86_64 -cpu core2duo`,
// where the exported transform must take the baseline form.

#include <cpuid.h>

#include <cstdio>
#include <memory>

#include <gtest/gtest.h>

#include "guarded_frames.h"
#include "library_copy.h"

using namespace safety;
using namespace ksi_test;

namespace {

bool cpuid_reports_sse41()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & (1u << 19)) != 0;
}

// A module session and one processor of a library copy, for one sweep.
class Exported_path {
public:
    explicit Exported_path(const Library_copy& library) : library_(library)
    {
        EXPECT_EQ(library_.initialize(), 0);
        EXPECT_EQ(library_.create(&processor_), 0);
    }
    ~Exported_path()
    {
        library_.destroy(processor_);
        library_.terminate();
    }

    Guarded_runner runner() const
    {
        return [this](const Guarded_call& call) {
            return library_.transform(processor_, call.polar_phase, call.input, 0, 0, std::int32_t(call.columns),
                                      std::int32_t(call.rows), call.bit_depth, call.output_maximum,
                                      call.normalized_stokes, call.images[1], call.images[2], call.images[3],
                                      call.images[4], call.images[5]);
        };
    }

private:
    const Library_copy& library_;
    void* processor_ = nullptr;
};

Sweep_result sweep_local_kernels(const Sweep_plan& plan)
{
    const Library_copy library(KSI_LIBRARY_FILE, {});
    const Exported_path path(library);
    EXPECT_FALSE(library_is_open(extension_file_name))
        << "an extension was found; this sweep must run the library's own kernels";
    return sweep_guarded_frames(plan, path.runner());
}

const char* local_form_name() { return cpuid_reports_sse41() ? "SSE4.1 form" : "baseline form"; }

// Every exported transform queries CPUID, which a virtual machine may trap
// (here about 10 us a query, three quarters of a small frame's call). The
// exported sweeps therefore take every phase with one scale at each size;
// GuardPagesInternal sweeps both scales of every form through the dispatcher.
Sweep_plan exported_small_size_plan() { return small_size_plan(Coverage::every_phase_one_scale); }

bool cpuid_reports_avx2()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) && (ebx & (1u << 5)) != 0;
}

// The built extension beside a copy of the library: on a processor with
// AVX2 it computes every frame, in the widest form it can run.
Sweep_result sweep_extension(const Sweep_plan& plan)
{
    const Library_copy library(KSI_LIBRARY_FILE, {KSI_EXTENSION_FILE});
    const Exported_path path(library);
    EXPECT_TRUE(library_is_open(extension_file_name)) << "the extension beside the library was not loaded";
    std::printf("extension loaded from %s\n", directory_of_open_library(extension_file_name).c_str());
    return sweep_guarded_frames(plan, path.runner());
}

#define REQUIRE_AVX2()                                                                         \
    if (!cpuid_reports_avx2()) {                                                               \
        std::printf("this processor lacks AVX2: the library never calls the extension here\n"); \
        GTEST_SKIP();                                                                          \
    }

}  // namespace

TEST(GuardPagesHarness, AnElementPastEitherEndFaults)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (Placement placement : {Placement::ends_at_guard, Placement::starts_after_guard}) {
        auto read_outside = [placement] {
            Guarded_buffer buffer(6 * sizeof(std::uint16_t), placement);
            const volatile std::uint16_t* element = buffer.as<const std::uint16_t>();
            const std::ptrdiff_t outside = placement == Placement::ends_at_guard ? 6 : -1;
            std::printf("%u\n", unsigned(element[outside]));
        };
        EXPECT_DEATH(read_outside(), "") << placement_name(placement);
    }
    auto write_read_only = [] {
        Guarded_buffer buffer(64, Placement::ends_at_guard);
        buffer.make_read_only();
        *static_cast<volatile unsigned char*>(buffer.data()) = 1;
    };
    EXPECT_DEATH(write_read_only(), "");
}

TEST(GuardPagesHarness, EachPlacementTouchesItsGuardPage)
{
    const Guarded_buffer ending(10, Placement::ends_at_guard);
    const Guarded_buffer starting(10, Placement::starts_after_guard);
    EXPECT_EQ((reinterpret_cast<std::uintptr_t>(ending.data()) + 10) % page_size(), 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(starting.data()) % page_size(), 0u);
}

TEST(GuardPagesExported, LocalKernelsEverySmallSizeSlotSetAndPhase)
{
    std::printf("local kernels in the %s\n", local_form_name());
    const Sweep_result result = sweep_local_kernels(exported_small_size_plan());
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

TEST(GuardPagesExported, LocalKernelsCameraSizes)
{
    std::printf("local kernels in the %s\n", local_form_name());
    const Sweep_result result = sweep_local_kernels({camera_sizes(), representative_slot_sets()});
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

TEST(GuardPagesExtension, EverySmallSizeSlotSetAndPhase)
{
    REQUIRE_AVX2();
    const Sweep_result result = sweep_extension(exported_small_size_plan());
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

TEST(GuardPagesExtension, CameraSizes)
{
    REQUIRE_AVX2();
    const Sweep_result result = sweep_extension({camera_sizes(), representative_slot_sets()});
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

TEST(GuardPagesEmulated, BaselineFormEverySmallSizeSlotSetAndPhase)
{
    ASSERT_FALSE(cpuid_reports_sse41()) << "run this under qemu-x86_64 -cpu core2duo, a processor without SSE4.1";
    // Emulation is slow: each slot set meets one phase and scale per size,
    // all of them over the sizes. GuardPagesInternal runs every combination
    // of the baseline form natively.
    const Sweep_result result = sweep_local_kernels(small_size_plan(Coverage::one_phase_one_scale));
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}

TEST(GuardPagesEmulated, BaselineFormCameraSizes)
{
    ASSERT_FALSE(cpuid_reports_sse41()) << "run this under qemu-x86_64 -cpu core2duo, a processor without SSE4.1";
    // Emulation is slow: all six slots, one phase and scale per size.
    Sweep_plan plan{camera_sizes(), {all_slots}};
    plan.coverage = Coverage::one_phase_one_scale;
    const Sweep_result result = sweep_local_kernels(plan);
    EXPECT_EQ(result.failure_count, 0u) << describe(result);
    std::printf("%s\n", describe(result).c_str());
}
