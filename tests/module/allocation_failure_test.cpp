// Allocation failures in create and initialise. This program replaces the
// global allocation functions, for itself and for the shared object it
// links, so that the next allocations can be made to fail on demand.

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

// Thrown instead of std::bad_alloc to reach create's handler of every other
// exception.
struct Not_an_allocation_failure {};

enum class Failure { bad_alloc, other };

std::atomic<int> failures_to_inject{0};
std::atomic<int> failures_injected{0};
std::atomic<Failure> failure_kind{Failure::bad_alloc};

// Makes the next `count` allocations fail with the given kind of exception.
void fail_next_allocations(int count, Failure kind)
{
    failure_kind = kind;
    failures_injected = 0;
    failures_to_inject = count;
}

void stop_failing() { failures_to_inject = 0; }

void* allocate(std::size_t size)
{
    if (failures_to_inject.load() > 0) {
        --failures_to_inject;
        ++failures_injected;
        if (failure_kind.load() == Failure::other)
            throw Not_an_allocation_failure();
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}

void* allocate_aligned(std::size_t size, std::align_val_t alignment)
{
    if (failures_to_inject.load() > 0)
        return allocate(size);  // throws
    const std::size_t a = std::size_t(alignment) < sizeof(void*) ? sizeof(void*) : std::size_t(alignment);
    void* memory = nullptr;
    if (posix_memalign(&memory, a, size == 0 ? 1 : size) != 0)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new(std::size_t size, std::align_val_t alignment) { return allocate_aligned(size, alignment); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return allocate_aligned(size, alignment); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace {

constexpr char create_name[] = "kl_polarization_processor_create_polarization_processor";

class AllocationFailure : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
        ASSERT_TRUE(library_is_open(logger_file_name));
        const auto get_log = record.events_of("get_log");
        ASSERT_EQ(get_log.size(), 1u);
        handle = get_log[0][3];
    }
    void TearDown() override
    {
        stop_failing();
        kl_polarization_processor_module_terminate();
    }

    void expect_one_create_error(const char* message)
    {
        const auto lines = record.events_of("log");
        ASSERT_EQ(lines.size(), 1u);
        ASSERT_EQ(lines[0].size(), 7u);
        EXPECT_EQ(lines[0][1], handle);
        EXPECT_EQ(lines[0][2], "0");
        EXPECT_EQ(lines[0][3], source_path);
        EXPECT_GT(std::stoi(lines[0][4]), 0);
        EXPECT_EQ(lines[0][5], create_name);
        EXPECT_EQ(lines[0][6], message);
    }

    Event_record record;
    std::string handle;
};

}  // namespace

TEST_F(AllocationFailure, AllocationFailureInCreateGivesOutOfMemoryAndIsLogged)
{
    void* const untouched = reinterpret_cast<void*>(0x1234);
    void* processor = untouched;
    fail_next_allocations(1, Failure::bad_alloc);
    const int status = kl_polarization_processor_create_polarization_processor(&processor);
    stop_failing();
    EXPECT_EQ(failures_injected.load(), 1);
    EXPECT_EQ(status, 3);
    EXPECT_EQ(processor, untouched);
    expect_one_create_error("Memory allocation failure when trying to create a polar processor instance!");
}

TEST_F(AllocationFailure, OtherExceptionInCreateGivesFailureAndIsLogged)
{
    void* const untouched = reinterpret_cast<void*>(0x1234);
    void* processor = untouched;
    fail_next_allocations(1, Failure::other);
    const int status = kl_polarization_processor_create_polarization_processor(&processor);
    stop_failing();
    EXPECT_EQ(failures_injected.load(), 1);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(processor, untouched);
    expect_one_create_error("An unknown error occurred when trying to create a polar_processor instance!");
}

TEST_F(AllocationFailure, CreateWorksOnceAllocationsSucceedAgain)
{
    void* processor = nullptr;
    fail_next_allocations(1, Failure::bad_alloc);
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 3);
    stop_failing();
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    EXPECT_NE(processor, nullptr);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
}

TEST_F(AllocationFailure, AllocationFailureWhileLoggingTheFailurePassesToTheCaller)
{
    // The first failure hits the processor, the second the text of the
    // message that reports it.
    void* const untouched = reinterpret_cast<void*>(0x1234);
    void* processor = untouched;
    fail_next_allocations(2, Failure::bad_alloc);
    EXPECT_THROW(kl_polarization_processor_create_polarization_processor(&processor), std::bad_alloc);
    stop_failing();
    EXPECT_EQ(failures_injected.load(), 2);
    EXPECT_EQ(processor, untouched);
    EXPECT_EQ(record.count("log"), 0u);
}

TEST(AllocationFailureInInitialise, ThrowsAndLeavesTheModuleUninitialised)
{
    Event_record record;
    fail_next_allocations(1, Failure::bad_alloc);
    EXPECT_THROW(kl_polarization_processor_module_initialize(), std::bad_alloc);
    stop_failing();
    EXPECT_EQ(failures_injected.load(), 1);

    void* processor = nullptr;
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 2);
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_TRUE(record.events().empty());

    // The lock was released and the count kept at 0: a new initialise works
    // and one terminate closes it again.
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 2);
}
