// The module's life as a whole: a process that exits without terminate, and
// initialise and terminate racing on many threads. A sound extension and the
// recording log are on the path.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kestrion_ksi_polarization_processor.h"
#include "module_test_support.h"

using namespace ksi_test;

namespace {

// The child's part: initialise, work, and return with the module still
// initialised. No test assertions in here: the exit code tells.
int work_and_leave_initialised()
{
    if (kl_polarization_processor_module_initialize() != 0)
        return 10;
    void* processor = nullptr;
    if (kl_polarization_processor_create_polarization_processor(&processor) != 0)
        return 11;
    Frame frame(6, 4);
    if (frame.transform(&kl_polarization_processor_transform, processor, 0) != 0)
        return 12;
    if (kl_polarization_processor_destroy_polarization_processor(processor) != 0)
        return 13;
    return 0;
}

}  // namespace

TEST(ModuleLifecycle, ExitWithoutTerminateRunsTheExtensionsTerminateAndReleasesTheLog)
{
    ASSERT_TRUE(__builtin_cpu_supports("avx2"));
    Event_record record;
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0)
        std::exit(work_and_leave_initialised());
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);

    const auto events = record.events();
    EXPECT_EQ(only(events, "initialize").size(), 1u);
    EXPECT_EQ(only(events, "transform").size(), 1u);
    EXPECT_EQ(only(events, "terminate").size(), 1u) << "the extension was not terminated exactly once at exit";
    EXPECT_EQ(only(events, "free_log"), (std::vector<Event>{{"free_log", log_name, ""}}))
        << "the log was not released exactly once at exit";
    EXPECT_LT(first_index_of(events, "terminate"), first_index_of(events, "free_log"))
        << "the extension goes before the log";
}

TEST(ModuleLifecycle, ManyThreadsInitialiseAndTerminateAtOnce)
{
    constexpr int thread_count = 8;
    constexpr int rounds = 1000;
    Event_record record;
    std::atomic<int> unexpected_results{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([&] {
            while (!go.load())
                std::this_thread::yield();
            for (int round = 0; round < rounds; ++round) {
                if (kl_polarization_processor_module_initialize() != 0)
                    ++unexpected_results;
                if (kl_polarization_processor_module_terminate() != 0)
                    ++unexpected_results;
            }
        });
    go = true;
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(unexpected_results.load(), 0);
    void* processor = reinterpret_cast<void*>(0x10);
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 2) << "still initialised";
    EXPECT_EQ(processor, reinterpret_cast<void*>(0x10));
    EXPECT_FALSE(library_is_open(logger_file_name));
    EXPECT_FALSE(library_is_open(extension_file_name));

    const auto events = record.events();
    const std::size_t initialised = only(events, "initialize").size();
    const std::size_t opened = only(events, "get_log").size();
    RecordProperty("extension_loads", int(initialised));
    RecordProperty("log_opens", int(opened));
    EXPECT_GE(initialised, 1u);
    EXPECT_GE(opened, 1u);
    EXPECT_EQ(only(events, "terminate").size(), initialised);
    EXPECT_EQ(only(events, "free_log").size(), opened);

    // And the library still starts afresh.
    ASSERT_EQ(kl_polarization_processor_module_initialize(), 0);
    EXPECT_EQ(kl_polarization_processor_create_polarization_processor(&processor), 0);
    EXPECT_EQ(kl_polarization_processor_destroy_polarization_processor(processor), 0);
    EXPECT_EQ(kl_polarization_processor_module_terminate(), 0);
}
