// A whole session (initialise, create, set, transforms, get, destroy,
// terminate) leaves nothing allocated: every operator new made in the
// library, and in whatever extension it loads, is matched by a delete. In the
// sanitizer build LeakSanitizer also looks for unreachable blocks from any
// allocator once the session is over.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"

#if defined(__SANITIZE_ADDRESS__)
#define KSI_LEAK_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KSI_LEAK_SANITIZER 1
#endif
#endif
#ifdef KSI_LEAK_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace {

std::atomic<long> live_allocations{0};

void* counted_allocation(std::size_t bytes)
{
    void* block = std::malloc(bytes == 0 ? 1 : bytes);
    if (block == nullptr)
        throw std::bad_alloc();
    ++live_allocations;
    return block;
}

void counted_release(void* block) noexcept
{
    if (block == nullptr)
        return;
    --live_allocations;
    std::free(block);
}

}  // namespace

// Every allocation through operator new in this process, the library's
// included, comes here.
void* operator new(std::size_t bytes) { return counted_allocation(bytes); }
void* operator new[](std::size_t bytes) { return counted_allocation(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    try {
        return counted_allocation(bytes);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t bytes, const std::nothrow_t& tag) noexcept { return operator new(bytes, tag); }
void operator delete(void* block) noexcept { counted_release(block); }
void operator delete[](void* block) noexcept { counted_release(block); }
void operator delete(void* block, std::size_t) noexcept { counted_release(block); }
void operator delete[](void* block, std::size_t) noexcept { counted_release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { counted_release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { counted_release(block); }

namespace {

struct Frame {
    int width, height;
    std::vector<std::uint16_t> input;
    std::vector<float> normalized;
    std::vector<std::uint16_t> images[6];

    Frame(int width, int height)
        : width(width), height(height), input(std::size_t(width) * height), normalized(2 * input.size())
    {
        for (std::size_t i = 0; i < input.size(); ++i)
            input[i] = std::uint16_t((i * 2654435761u) >> 20);
        for (int slot = 1; slot < 6; ++slot)
            images[slot].assign(input.size(), 0);
    }
};

// Everything a client does with the library, with every frame buffer
// allocated beforehand. Returns the number of calls that did not succeed.
int run_session(std::vector<Frame>& frames)
{
    int failures = 0;
    auto expect_success = [&failures](int status) { failures += status != status_success; };
    expect_success(kl_polarization_processor_module_initialize());
    void* processors[3] = {};
    for (void*& processor : processors)
        expect_success(kl_polarization_processor_create_polarization_processor(&processor));
    float matrix[16] = {};
    for (int i = 0; i < 16; ++i)
        matrix[i] = float(i % 5) - 2.0f;
    expect_success(kl_polarization_processor_set_custom_calibration_coefficients(processors[1], matrix, nullptr,
                                                                                  matrix, nullptr));
    for (void* processor : processors)
        for (Frame& frame : frames)
            expect_success(kl_polarization_processor_transform(
                processor, polar_phase_45, frame.input.data(), 1, 0, frame.width, frame.height, 12, 65535,
                frame.normalized.data(), frame.images[1].data(), frame.images[2].data(), frame.images[3].data(),
                frame.images[4].data(), frame.images[5].data()));
    // A refused call allocates nothing either.
    failures += kl_polarization_processor_transform(processors[0], 7, nullptr, 0, 0, 0, 0, 99, 0, nullptr, nullptr,
                                                    nullptr, nullptr, nullptr, nullptr) != status_invalid_phase;
    float copy[16];
    expect_success(kl_polarization_processor_get_custom_calibration_coefficients(processors[1], copy, copy, copy,
                                                                                  copy));
    for (void* processor : processors)
        expect_success(kl_polarization_processor_destroy_polarization_processor(processor));
    expect_success(kl_polarization_processor_module_terminate());
    return failures;
}

}  // namespace

TEST(AllocationBalance, SessionsLeaveNothingAllocated)
{
    std::vector<Frame> frames;
    for (int side : {2, 3, 9, 16, 37})
        frames.emplace_back(side + 5, side);
    for (int session = 0; session < 3; ++session) {
        const long before = live_allocations.load();
        EXPECT_EQ(run_session(frames), 0);
        EXPECT_EQ(live_allocations.load(), before) << "session " << session << " left blocks allocated";
    }
#ifdef KSI_LEAK_SANITIZER
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << "LeakSanitizer found unreachable blocks";
#endif
}

TEST(AllocationBalance, CountingSeesTheLibrarysAllocations)
{
    // The first initialise builds the module's objects with operator new: if
    // the count did not move here, the balance above would prove nothing.
    const long before = live_allocations.load();
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    const long initialised = live_allocations.load();
    void* processor = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&processor), status_success);
    EXPECT_GT(live_allocations.load(), initialised);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), status_success);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), status_success);
    EXPECT_GT(initialised, before);
    EXPECT_EQ(live_allocations.load(), before);
}
