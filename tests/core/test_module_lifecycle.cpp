// Module initialise and terminate: reference counting, the "not initialised"
// answer of every other function, and processors that outlive the module.
// Each test runs in its own process, so every test starts uninitialised.
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "core_test_support.h"

namespace core_test {
namespace {

void* const not_a_handle = reinterpret_cast<void*>(std::uintptr_t(0x1000));

// Every function other than initialise and terminate answers 2.
void expect_all_not_initialized(void* some_handle)
{
    void* place = not_a_handle;
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&place), status_module_not_initialized);
    EXPECT_EQ(place, not_a_handle) << "create must not write the handle place when it fails";

    float m[16] = {};
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(some_handle, m, m, m, m),
              status_module_not_initialized);
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(some_handle, m, m, m, m),
              status_module_not_initialized);
    EXPECT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(nullptr, nullptr, nullptr, nullptr,
                                                                            nullptr),
              status_module_not_initialized);
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(nullptr, nullptr, nullptr, nullptr,
                                                                            nullptr),
              status_module_not_initialized);

    std::uint16_t input[4] = {1, 2, 3, 4};
    std::uint16_t out[4] = {0xA5A5, 0xA5A5, 0xA5A5, 0xA5A5};
    EXPECT_EQ(kl_polarization_processor_transform(some_handle, 0, input, 0, 0, 2, 2, 16, 65535, nullptr, out, nullptr,
                                                  nullptr, nullptr, nullptr),
              status_module_not_initialized);
    for (std::uint16_t v : out)
        EXPECT_EQ(v, 0xA5A5);
    // Even a call that would fail every other check answers 2.
    EXPECT_EQ(kl_polarization_processor_transform(nullptr, 99, nullptr, 0, 0, 0, 0, 99, 0, nullptr, nullptr, nullptr,
                                                  nullptr, nullptr, nullptr),
              status_module_not_initialized);

    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(some_handle), status_module_not_initialized);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(nullptr), status_module_not_initialized);
}

TEST(ModuleLifecycle, EveryCallBeforeInitializeReturns2)
{
    // The handle is never dereferenced while the module is not initialised.
    expect_all_not_initialized(not_a_handle);
}

TEST(ModuleLifecycle, EveryCallAfterTheLastTerminateReturns2)
{
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    {
        Processor processor;
        EXPECT_NE(processor.handle(), nullptr);
    }
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);
    expect_all_not_initialized(not_a_handle);
}

TEST(ModuleLifecycle, InitializeAndTerminateAlwaysReturn0)
{
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(kl_polarization_processor_module_initialize(), status_success);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(kl_polarization_processor_module_terminate(), status_success);
}

TEST(ModuleLifecycle, TwoInitializesAndOneTerminateLeaveTheLibraryUsable)
{
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);

    void* handle = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&handle), status_success);
    std::vector<std::uint16_t> input(16, 100), s0(16, 0);
    EXPECT_EQ(kl_polarization_processor_transform(handle, 0, input.data(), 0, 0, 4, 4, 16, 65535, nullptr, s0.data(),
                                                  nullptr, nullptr, nullptr, nullptr),
              status_success);
    for (std::uint16_t v : s0)
        EXPECT_EQ(v, 200);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(handle), status_success);

    // The second terminate closes it.
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);
    void* place = not_a_handle;
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&place), status_module_not_initialized);
    EXPECT_EQ(place, not_a_handle);
}

TEST(ModuleLifecycle, TerminateBeforeAnyInitializeReturns0AndALaterInitializeWorks)
{
    EXPECT_EQ(kl_polarization_processor_module_terminate(), status_success);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), status_success);
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    void* handle = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&handle), status_success);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(handle), status_success);
    // The unmatched terminates were not counted: one terminate closes.
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);
    void* place = not_a_handle;
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&place), status_module_not_initialized);
}

TEST(ModuleLifecycle, ANewInitializeAfterTheLastTerminateWorksAgain)
{
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
        {
            Processor processor;
            std::mt19937_64 rng(6001 + round);
            Frame_case frame = random_frame(rng, 5, 9);
            EXPECT_EQ(check_exported_frame(processor, frame, "round " + std::to_string(round)), 0u);
        }
        ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);
        void* place = not_a_handle;
        EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&place), status_module_not_initialized);
    }
}

// A processor may outlive the module, but cannot then be used or freed;
// destroy in that state frees nothing, so the processor is intact once the
// module is back.
TEST(ModuleLifecycle, DestroyWhileNotInitializedFreesNothing)
{
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    void* handle = nullptr;
    ASSERT_EQ(kl_polarization_processor_create_polarization_processor(&handle), status_success);
    Matrix custom = matrix_rows({1.5f, 2.5f, 3.5f, 4.5f}, {-1, -2, -3, -4}, {9, 8, 7, 6});
    custom[12] = 42.0f;
    ASSERT_EQ(kl_polarization_processor_set_custom_calibration_coefficients(handle, nullptr, custom.data(), nullptr,
                                                                            nullptr),
              status_success);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);

    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(handle), status_module_not_initialized);
    float m[16];
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(handle, nullptr, m, nullptr, nullptr),
              status_module_not_initialized);

    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    // Still alive: a freed object would show under the address sanitizer.
    Matrix read{};
    EXPECT_EQ(kl_polarization_processor_get_custom_calibration_coefficients(handle, nullptr, read.data(), nullptr,
                                                                            nullptr),
              status_success);
    EXPECT_TRUE(same_bits(read, custom));
    std::vector<std::uint16_t> input(9, 7), s0(9, 0);
    EXPECT_EQ(kl_polarization_processor_transform(handle, 0, input.data(), 0, 0, 3, 3, 16, 65535, nullptr, s0.data(),
                                                  nullptr, nullptr, nullptr, nullptr),
              status_success);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(handle), status_success);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);
}

// With neither the logging library nor the extension installed, initialise
// still returns 0, create succeeds, the local kernels serve the transform and
// nothing is printed.
TEST(ModuleLifecycle, WithoutLoggingLibraryOrExtensionEverythingWorksSilently)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int init_status = kl_polarization_processor_module_initialize();
    void* handle = nullptr;
    int create_status = kl_polarization_processor_create_polarization_processor(&handle);
    std::mt19937_64 rng(6101);
    Frame_case frame = random_frame(rng, 6, 11);
    frame.slots = all_slots;
    Output_arena arena(frame.pixels(), frame.slots, 0xA5);
    int set_status = kl_polarization_processor_set_custom_calibration_coefficients(
        handle, frame.by_polarizer[0].data(), frame.by_polarizer[1].data(), frame.by_polarizer[2].data(),
        frame.by_polarizer[3].data());
    int transform_status = transform_frame(handle, frame, arena);
    // Refusals, including the ones that would log an error line.
    int null_handle_status = kl_polarization_processor_transform(nullptr, 0, frame.input.data(), 0, 0, 2, 2, 8, 255,
                                                                 nullptr, arena.slot(1), nullptr, nullptr, nullptr,
                                                                 nullptr);
    int null_set_status =
        kl_polarization_processor_set_custom_calibration_coefficients(nullptr, nullptr, nullptr, nullptr, nullptr);
    int null_get_status =
        kl_polarization_processor_get_custom_calibration_coefficients(nullptr, nullptr, nullptr, nullptr, nullptr);
    int null_destroy_status = kl_polarization_processor_destroy_polarization_processor(nullptr);
    int phase_status = kl_polarization_processor_transform(handle, 9, frame.input.data(), 0, 0, 2, 2, 8, 255, nullptr,
                                                           arena.slot(1), nullptr, nullptr, nullptr, nullptr);
    int destroy_status = kl_polarization_processor_destroy_polarization_processor(handle);
    int terminate_status = kl_polarization_processor_module_terminate();
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();

    EXPECT_EQ(init_status, status_success);
    EXPECT_EQ(create_status, status_success);
    EXPECT_EQ(set_status, status_success);
    EXPECT_EQ(transform_status, status_success);
    EXPECT_EQ(null_handle_status, status_null_handle);
    EXPECT_EQ(null_set_status, status_null_handle);
    EXPECT_EQ(null_get_status, status_null_handle);
    EXPECT_EQ(null_destroy_status, status_null_handle);
    EXPECT_EQ(phase_status, status_invalid_phase);
    EXPECT_EQ(destroy_status, status_success);
    EXPECT_EQ(terminate_status, status_success);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "");
    // The phase-9 refusal wrote nothing; the earlier transform's results stand.
    EXPECT_EQ(compare_with_reference(frame, arena, reference_outputs(frame), true, "silent module"), 0u);
}

// A process that exits without terminate cleans up through the holders'
// destructors and ends normally.
TEST(ModuleLifecycleDeathTest, ExitWithoutTerminateEndsCleanly)
{
    EXPECT_EXIT(
        {
            kl_polarization_processor_module_initialize();
            kl_polarization_processor_module_initialize();
            void* handle = nullptr;
            if (kl_polarization_processor_create_polarization_processor(&handle) != status_success)
                std::_Exit(3);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

// Initialise and terminate take their own locks and may run on any thread.
TEST(ModuleLifecycle, ConcurrentInitializeAndTerminateKeepTheCount)
{
    ASSERT_EQ(kl_polarization_processor_module_initialize(), status_success);
    auto churn = [] {
        for (int i = 0; i < 200; ++i) {
            kl_polarization_processor_module_initialize();
            kl_polarization_processor_module_terminate();
        }
    };
    std::thread a(churn), b(churn);
    a.join();
    b.join();
    // The first initialise is still counted.
    void* handle = nullptr;
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&handle), status_success);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(handle), status_success);
    ASSERT_EQ(kl_polarization_processor_module_terminate(), status_success);
    void* place = not_a_handle;
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&place), status_module_not_initialized);
}

// Transforms share nothing writable: two threads on one handle get the
// reference result each.
TEST(ModuleLifecycle, ConcurrentTransformsOnOneHandle)
{
    Module_session session;
    Processor processor;
    std::mt19937_64 rng(6201);
    Frame_case frame = random_frame(rng, 33, 47);
    frame.slots = all_slots;
    ASSERT_EQ(processor.set(frame.by_polarizer), status_success);
    const auto expected = reference_outputs(frame);
    std::size_t mismatches[2] = {0, 0};
    auto work = [&](int t) {
        for (int i = 0; i < scaled_iterations(30); ++i) {
            Output_arena arena(frame.pixels(), all_slots, t ? 0x5A : 0xA5);
            if (transform_frame(processor.handle(), frame, arena) != status_success) {
                ++mismatches[t];
                continue;
            }
            for (std::size_t p = 0; p < frame.pixels(); ++p) {
                const unsigned r = unsigned(p / frame.columns), c = unsigned(p % frame.columns);
                if (ksi_reference::is_block_pixel(frame.rows, frame.columns, r, c))
                    continue;
                for (int s = 1; s <= 5; ++s)
                    mismatches[t] += expected.slot[s][p] != arena.slot_at(s, p);
                for (int e = 0; e < 2; ++e)
                    mismatches[t] +=
                        !ksi_reference::same_normalized(expected.normalized[2 * p + e], arena.normalized_at(2 * p + e));
            }
        }
    };
    std::thread a(work, 0), b(work, 1);
    a.join();
    b.join();
    EXPECT_EQ(mismatches[0], 0u);
    EXPECT_EQ(mismatches[1], 0u);
}

}  // namespace
}  // namespace core_test
