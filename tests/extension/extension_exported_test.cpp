// The exported transform of the library in the build tree, which finds the
// extension beside it, against the library's local SSE4.1 kernels: sensor
// phases (negative ones too), origins, custom matrices, and many threads at
// once.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "exported_library.h"
#include "extension_runs.h"
#include "vector_avx2_module.h"

using namespace extension_test_support;

namespace {

class ExtensionThroughExportedTransform : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_GE(vector_avx2::supported_lane_width(), 8u)
            << "the extension's tests need a processor with AVX2 and an operating system that saves its registers";
        ASSERT_TRUE(library_.error().empty()) << library_.error();
        ASSERT_EQ(library_.start(), 0);
        ASSERT_TRUE(extension_is_loaded()) << "the library did not load the extension beside it";
    }

    Exported_library library_{KSI_LIBRARY_FILE};
};

TEST_F(ExtensionThroughExportedTransform, MatchesLocalKernelsForEveryPhaseAndOrigin)
{
    std::mt19937 random(1224u);
    int failures = 0;
    for (unsigned i = 0; i < scaled_iterations(400) && failures < 4; ++i) {
        Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(2, 40)(random)),
                                   unsigned(std::uniform_int_distribution<int>(2, 90)(random)));
        const std::int32_t sensor_phase = std::uniform_int_distribution<int>(-4, 3)(random);  // above 3 is refused
        const std::int32_t origin_x = std::uniform_int_distribution<int>(-3, 3)(random);
        const std::int32_t origin_y = std::uniform_int_distribution<int>(-3, 3)(random);
        c.phase = rebased_phase(sensor_phase, origin_x, origin_y);
        const Frame frame = c.frame();
        const Angle_matrices angle_matrices = c.angle_matrices();
        ASSERT_EQ(library_.set_coefficients(angle_matrices), 0);

        Frame_outputs actual(frame.rows, frame.columns, c.slots);
        ASSERT_EQ(library_.transform(frame, actual, sensor_phase, origin_x, origin_y, c.bit_depth, c.output_maximum),
                  0);
        const Frame_outputs expected = run_local_sse41(frame, c.slots, c.phase, c.bit_depth, c.output_maximum,
                                                       matrices_of_phase(angle_matrices, c.phase));
        std::ostringstream context;
        context << "sensor phase " << sensor_phase << " origin (" << origin_x << ", " << origin_y << ") "
                << c.describe();
        const Comparison comparison = compare_outputs(expected, actual, context.str());
        EXPECT_TRUE(comparison.equal) << comparison.report;
        failures += comparison.equal ? 0 : 1;
    }
}

TEST_F(ExtensionThroughExportedTransform, ManyThreadsAtOnceGiveTheSingleThreadedResults)
{
    constexpr unsigned threads = 8;
    const unsigned frames_per_thread = scaled_iterations(16);
    std::mt19937 random(8u);
    std::vector<Frame_case> cases;
    for (unsigned i = 0; i < threads * frames_per_thread; ++i) {
        Frame_case c = random_case(random, unsigned(std::uniform_int_distribution<int>(2, 120)(random)),
                                   unsigned(std::uniform_int_distribution<int>(2, 300)(random)));
        c.phase = std::uniform_int_distribution<int>(0, 3)(random);
        cases.push_back(c);
    }
    // The processor's matrices are set once; transforms only read them.
    ASSERT_EQ(library_.set_coefficients(cases.front().angle_matrices()), 0);

    std::vector<Frame> frames;
    std::vector<Frame_outputs> single_threaded;
    for (const Frame_case& c : cases) {
        frames.push_back(c.frame());
        single_threaded.emplace_back(c.rows, c.columns, c.slots);
        ASSERT_EQ(library_.transform(frames.back(), single_threaded.back(), c.phase, 0, 0, c.bit_depth,
                                     c.output_maximum),
                  0);
    }

    std::vector<Frame_outputs> concurrent;
    for (const Frame_case& c : cases)
        concurrent.emplace_back(c.rows, c.columns, c.slots);
    std::vector<int> statuses(cases.size(), -1);
    std::vector<std::thread> workers;
    for (unsigned t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            // Each thread goes through its frames several times, interleaved
            // with the others.
            for (unsigned round = 0; round < 3; ++round)
                for (std::size_t i = t; i < cases.size(); i += threads)
                    statuses[i] = library_.transform(frames[i], concurrent[i], cases[i].phase, 0, 0,
                                                     cases[i].bit_depth, cases[i].output_maximum);
        });
    for (std::thread& worker : workers)
        worker.join();

    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(statuses[i], 0);
        const Comparison comparison = compare_outputs(single_threaded[i], concurrent[i], cases[i].describe());
        EXPECT_TRUE(comparison.equal) << comparison.report;
    }
}

}  // namespace
