// Many threads at once: transforms on one shared handle and on handles of
// their own, and initialise/terminate pairs from many threads while other
// threads create, transform and destroy between their own initialise and
// terminate. Every result must equal the one computed on a single thread
// beforehand. Built with ThreadSanitizer by `.ci/tsan`, where any data race
// ends the run.
//
// Two paths, by the companion beside the library copy: ConcurrentLocal.*
// runs the library's own kernels, ConcurrentExtension.* the AVX2 extension.

#include <cpuid.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "library_copy.h"

using namespace ksi_test;

namespace {

constexpr unsigned thread_count = 8;

// One frame with buffers for all six outputs.
struct Frame_job {
    unsigned rows, columns;
    std::int32_t phase, origin_x, origin_y;
    std::uint32_t bit_depth;
    std::uint16_t output_maximum;
    std::vector<std::uint16_t> input;
    std::vector<float> normalized;
    std::vector<std::uint16_t> images[6];  // index 1 to 5

    Frame_job(unsigned rows, unsigned columns, std::mt19937& random)
        : rows(rows),
          columns(columns),
          phase(std::int32_t(random() % 4)),
          origin_x(std::int32_t(random() % 7) - 3),
          origin_y(std::int32_t(random() % 7) - 3),
          bit_depth(8 + random() % 9),
          output_maximum(random() % 2 ? std::uint16_t((1u << bit_depth) - 1u) : std::uint16_t(65535)),
          input(std::size_t(rows) * columns),
          normalized(2 * input.size())
    {
        for (std::uint16_t& pixel : input)
            pixel = std::uint16_t(random() % (1u << bit_depth));
        for (unsigned slot = 1; slot < 6; ++slot)
            images[slot].assign(input.size(), 0);
    }

    int run(const Library_copy& library, void* processor)
    {
        return library.transform(processor, phase, input.data(), origin_x, origin_y, std::int32_t(columns),
                                 std::int32_t(rows), bit_depth, output_maximum, normalized.data(), images[1].data(),
                                 images[2].data(), images[3].data(), images[4].data(), images[5].data());
    }

    bool same_outputs(const Frame_job& other) const
    {
        if (std::memcmp(normalized.data(), other.normalized.data(), normalized.size() * sizeof(float)) != 0)
            return false;
        for (unsigned slot = 1; slot < 6; ++slot)
            if (images[slot] != other.images[slot])
                return false;
        return true;
    }
};

// Each thread's frames, and what a single thread computed for them.
struct Workload {
    std::vector<std::vector<Frame_job>> frames;    // [thread][frame]
    std::vector<std::vector<Frame_job>> expected;  // the same, transformed on one thread

    Workload(const Library_copy& library, void* processor, unsigned threads, unsigned frames_per_thread)
    {
        std::mt19937 random(4711u);
        for (unsigned t = 0; t < threads; ++t) {
            frames.emplace_back();
            for (unsigned f = 0; f < frames_per_thread; ++f)
                frames.back().emplace_back(2 + random() % 47, 2 + random() % 71, random);
        }
        expected = frames;
        for (auto& list : expected)
            for (Frame_job& job : list)
                EXPECT_EQ(job.run(library, processor), 0);
    }

    // Clears the outputs of thread t's frames before they are computed again.
    void clear_outputs(unsigned t)
    {
        for (Frame_job& job : frames[t]) {
            std::fill(job.normalized.begin(), job.normalized.end(), 0.0f);
            for (unsigned slot = 1; slot < 6; ++slot)
                std::fill(job.images[slot].begin(), job.images[slot].end(), 0);
        }
    }
};

// Starts every thread's work at the same moment, so that the calls overlap.
class Start_line {
public:
    explicit Start_line(unsigned threads) : waiting_(threads) {}
    void arrive_and_wait()
    {
        waiting_.fetch_sub(1);
        while (waiting_.load() > 0)
            std::this_thread::yield();
    }

private:
    std::atomic<int> waiting_;
};

bool cpuid_reports_avx2()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) && (ebx & (1u << 5)) != 0;
}

// A copy of the library, with the built extension beside it or nothing.
std::vector<std::string> companions(bool with_extension)
{
    return with_extension ? std::vector<std::string>{KSI_EXTENSION_FILE} : std::vector<std::string>{};
}

// A copy of the library on one path, initialised, with a processor, after a
// check of which companion the copy found.
class Path_session {
public:
    explicit Path_session(bool with_extension) : library_(KSI_LIBRARY_FILE, companions(with_extension))
    {
        EXPECT_EQ(library_.initialize(), 0);
        EXPECT_EQ(library_.create(&shared_processor_), 0);
        EXPECT_EQ(library_is_open(extension_file_name), with_extension)
            << (with_extension ? "the extension was not found: set LD_LIBRARY_PATH to its directory"
                               : "an extension was found; this test must run the library's own kernels");
    }
    ~Path_session()
    {
        library_.destroy(shared_processor_);
        library_.terminate();
    }
    const Library_copy& library() const { return library_; }
    void* shared_processor() const { return shared_processor_; }

private:
    Library_copy library_;
    void* shared_processor_ = nullptr;
};

// Eight threads transform their frames several times, on the shared handle
// or on handles of their own.
void transform_on_many_threads(bool with_extension, bool shared_handle)
{
    const Path_session session(with_extension);
    const Library_copy& library = session.library();
    Workload work(library, session.shared_processor(), thread_count, 3);
    std::atomic<unsigned> mismatches{0}, refusals{0};
    Start_line start(thread_count);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            void* processor = session.shared_processor();
            if (!shared_handle && library.create(&processor) != 0)
                ++refusals;
            start.arrive_and_wait();
            for (unsigned round = 0; round < 4; ++round) {
                work.clear_outputs(t);
                for (std::size_t f = 0; f < work.frames[t].size(); ++f) {
                    if (work.frames[t][f].run(library, processor) != 0)
                        ++refusals;
                    if (!work.frames[t][f].same_outputs(work.expected[t][f]))
                        ++mismatches;
                }
            }
            if (!shared_handle)
                library.destroy(processor);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(refusals.load(), 0u);
    EXPECT_EQ(mismatches.load(), 0u) << "a frame computed on several threads differs from the single-threaded one";
}

// Cycling threads run initialise/terminate pairs without pause; working
// threads run initialise, create, transforms, destroy, terminate in a loop.
// Each working thread keeps the module initialised while it uses it, so
// every one of its calls must succeed whatever the others do.
void lifecycle_on_many_threads(bool with_extension)
{
    Workload work = [&] {
        const Path_session session(with_extension);
        return Workload(session.library(), session.shared_processor(), thread_count / 2, 2);
    }();
    const Library_copy library(KSI_LIBRARY_FILE, companions(with_extension));
    std::atomic<unsigned> mismatches{0}, failures{0}, cycles{0};
    std::atomic<bool> working{true};
    Start_line start(thread_count);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < thread_count / 2; ++t) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            while (working.load()) {
                if (library.initialize() != 0 || library.terminate() != 0)
                    ++failures;
                ++cycles;
            }
        });
    }
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < thread_count / 2; ++t) {
        workers.emplace_back([&, t] {
            start.arrive_and_wait();
            for (unsigned round = 0; round < 20; ++round) {
                work.clear_outputs(t);
                void* processor = nullptr;
                if (library.initialize() != 0 || library.create(&processor) != 0) {
                    ++failures;
                    continue;
                }
                for (std::size_t f = 0; f < work.frames[t].size(); ++f) {
                    if (work.frames[t][f].run(library, processor) != 0)
                        ++failures;
                    if (!work.frames[t][f].same_outputs(work.expected[t][f]))
                        ++mismatches;
                }
                if (library.destroy(processor) != 0 || library.terminate() != 0)
                    ++failures;
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    working = false;
    for (std::thread& thread : threads)
        thread.join();
    std::printf("%u initialise/terminate pairs ran beside the workers\n", cycles.load());
    EXPECT_EQ(failures.load(), 0u);
    EXPECT_EQ(mismatches.load(), 0u);
    EXPECT_GT(cycles.load(), 0u);
    // Every pair was matched: the module is closed again.
    void* processor = nullptr;
    EXPECT_EQ(library.create(&processor), 2);
}

#define REQUIRE_EXTENSION_PATH()                                                                   \
    if (!cpuid_reports_avx2()) {                                                                    \
        std::printf("this processor lacks AVX2, so the library never calls the extension here\n"); \
        GTEST_SKIP();                                                                               \
    }

}  // namespace

TEST(ConcurrentLocal, EightThreadsOnOneSharedHandle) { transform_on_many_threads(false, true); }
TEST(ConcurrentLocal, EightThreadsOnHandlesOfTheirOwn) { transform_on_many_threads(false, false); }
TEST(ConcurrentLocal, InitialiseAndTerminateWhileOthersTransform) { lifecycle_on_many_threads(false); }

TEST(ConcurrentExtension, EightThreadsOnOneSharedHandle)
{
    REQUIRE_EXTENSION_PATH();
    transform_on_many_threads(true, true);
}
TEST(ConcurrentExtension, EightThreadsOnHandlesOfTheirOwn)
{
    REQUIRE_EXTENSION_PATH();
    transform_on_many_threads(true, false);
}
TEST(ConcurrentExtension, InitialiseAndTerminateWhileOthersTransform)
{
    REQUIRE_EXTENSION_PATH();
    lifecycle_on_many_threads(true);
}
