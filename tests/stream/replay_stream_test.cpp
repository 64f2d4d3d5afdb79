// Frames replayed from memory through the streaming engine: every frame,
// delivered packed in each pixel format, comes out as the library's own
// transform of the frame; the rate holds; a slow consumer makes the engine
// drop frames, never the source wait.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include <kestrion_ksi_polarization_processor.h>
#include <kestrion_ksi_polarization_processor.hpp>

#include "replay_source.hpp"
#include "stream_engine.hpp"

namespace {

namespace kp = kestrion::polarization;
using namespace ksi_cli;

Frame random_frame(std::int32_t width, std::int32_t height, unsigned bits, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<unsigned> value(0, (1u << bits) - 1);
    Frame frame;
    frame.width = width;
    frame.height = height;
    frame.bit_depth = bits;
    frame.pixels.resize(static_cast<std::size_t>(width) * height);
    for (std::uint16_t& pixel : frame.pixels)
        pixel = static_cast<std::uint16_t>(value(generator));
    return frame;
}

struct Images {
    std::vector<std::uint16_t> s0, azimuth, dolp;
    bool operator==(const Images& other) const
    {
        return s0 == other.s0 && azimuth == other.azimuth && dolp == other.dolp;
    }
};

class ReplayStream : public testing::Test {
protected:
    // S0, azimuth and DoLP of `frame` through the C interface on a handle
    // of the test's own.
    Images direct_transform(const Frame& frame, int phase, int origin_x, int origin_y) const
    {
        const std::size_t pixels = frame.pixels.size();
        Images expected{std::vector<std::uint16_t>(pixels), std::vector<std::uint16_t>(pixels),
                        std::vector<std::uint16_t>(pixels)};
        EXPECT_EQ(kl_polarization_processor_transform(reference_.handle(), phase, frame.pixels.data(), origin_x,
                                                      origin_y, frame.width, frame.height, frame.bit_depth, 65535,
                                                      nullptr, expected.s0.data(), nullptr, nullptr,
                                                      expected.azimuth.data(), expected.dolp.data()),
                  status_success);
        return expected;
    }

    static Stream_settings settings_of(std::uint64_t frames, unsigned threads)
    {
        Stream_settings settings;
        settings.frame.phase = kp::Phase::degrees_45;
        settings.frame.outputs = Output_set::of({Output::s0, Output::aolp, Output::dolp});
        settings.frame_limit = frames;
        settings.threads = threads;
        return settings;
    }

    // Streams with a consumer that keeps every frame's images by number.
    Stream_summary stream(Frame_source& source, const Stream_settings& settings)
    {
        const Frame_consumer keep = [this](const Transformed_frame& frame) {
            Images images{frame.outputs.image(Output::s0), frame.outputs.image(Output::aolp),
                          frame.outputs.image(Output::dolp)};
            std::lock_guard<std::mutex> lock(mutex_);
            kept_[frame.number] = std::move(images);
        };
        return run_stream(source, settings, processor_, keep, never_);
    }

    kp::Module module_;
    kp::Processor processor_;
    kp::Processor reference_;
    std::mutex mutex_;
    std::map<std::uint64_t, Images> kept_;
    std::atomic<bool> never_{false};
};

class ReplayFormats : public ReplayStream, public testing::WithParamInterface<const char*> {};

TEST_P(ReplayFormats, EveryFrameEqualsTheDirectTransform)
{
    const Pixel_format format = *pixel_format_by_name(GetParam());
    // An odd width, so that packed rows run on across byte triples.
    std::vector<Frame> frames;
    for (unsigned seed = 1; seed <= 3; ++seed)
        frames.push_back(random_frame(37, 12, format.bit_depth, seed));
    Replay_source source(format, 400, "replay");
    for (const Frame& frame : frames)
        source.add(frame);
    EXPECT_EQ(source.bit_depth(), format.bit_depth);
    const Stream_summary summary = stream(source, settings_of(8, 2));
    EXPECT_EQ(summary.transformed, 8u);
    EXPECT_EQ(summary.received, summary.transformed + summary.dropped_busy);
    EXPECT_EQ(summary.pixel_format, GetParam());
    EXPECT_EQ(summary.bit_depth, format.bit_depth);
    EXPECT_EQ(summary.stop_reason, "frame limit");
    ASSERT_EQ(kept_.size(), 8u);
    // The n-th frame received is frame n of the loop.
    for (const auto& [number, images] : kept_)
        EXPECT_TRUE(images == direct_transform(frames[number % frames.size()], 1, 0, 0)) << "frame " << number;
}

INSTANTIATE_TEST_SUITE_P(Formats, ReplayFormats,
                         testing::Values("Mono8", "Mono10", "Mono12", "Mono16", "Mono12Packed", "Mono12p"));

TEST_F(ReplayStream, OriginReplacesTheRegionsOffsets)
{
    const Frame frame = random_frame(20, 10, 12, 7);
    Replay_source source(*pixel_format_by_name("Mono12p"), 400, "replay");
    source.add(frame);
    Stream_settings settings = settings_of(3, 1);
    settings.origin = std::pair{3, 1};
    const Stream_summary summary = stream(source, settings);
    EXPECT_EQ(summary.origin_x, 3);
    EXPECT_EQ(summary.origin_y, 1);
    ASSERT_FALSE(kept_.empty());
    const Images expected = direct_transform(frame, 1, 3, 1);
    for (const auto& [number, images] : kept_)
        EXPECT_TRUE(images == expected) << "frame " << number;
    EXPECT_FALSE(kept_.begin()->second == direct_transform(frame, 1, 0, 0));
}

// Frames are delivered one period apart at the earliest.
TEST_F(ReplayStream, FramesComeNoFasterThanTheRate)
{
    Replay_source source(*pixel_format_by_name("Mono16"), 50, "replay");
    source.add(random_frame(16, 16, 16, 3));
    const Stream_summary summary = stream(source, settings_of(11, 1));
    EXPECT_EQ(summary.transformed, 11u);
    EXPECT_GE(summary.seconds, 10 / 50.0 * 0.98);
    EXPECT_GE(source.delivered(), summary.received);
}

// A consumer slower than the source: every slot busy, frames dropped on
// arrival and their buffers given back at once, so that the source always
// has one free and loses nothing.
TEST_F(ReplayStream, SlowConsumerDropsFramesWithoutStallingTheSource)
{
    Replay_source source(*pixel_format_by_name("Mono16"), 200, "replay");
    source.add(random_frame(16, 16, 16, 5));
    Stream_settings settings = settings_of(4, 1);
    settings.frame_slots = 1;
    const Frame_consumer slow = [](const Transformed_frame&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
    };
    const Stream_summary summary = run_stream(source, settings, processor_, slow, never_);
    EXPECT_EQ(summary.transformed, 4u);
    EXPECT_GT(summary.dropped_busy, 0u);
    EXPECT_EQ(summary.lost_upstream, 0u);
    EXPECT_EQ(summary.received, summary.transformed + summary.dropped_busy);
}

TEST_F(ReplayStream, StatusListenerHearsTheCounts)
{
    Replay_source source(*pixel_format_by_name("Mono16"), 100, "replay");
    source.add(random_frame(16, 16, 16, 9));
    Stream_settings settings = settings_of(30, 1);
    settings.status_interval_seconds = 0.05;
    std::vector<std::uint64_t> heard;
    settings.status = [&heard](const Stream_summary& now) { heard.push_back(now.received); };
    const Stream_summary summary = stream(source, settings);
    ASSERT_GE(heard.size(), 2u);
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
    EXPECT_LE(heard.back(), summary.received);
}

TEST_F(ReplayStream, StopRequestEndsTheReplay)
{
    Replay_source source(*pixel_format_by_name("Mono8"), 100, "replay");
    source.add(random_frame(8, 8, 8, 2));
    std::atomic<bool> stop{false};
    std::thread interrupter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        stop = true;
    });
    const Stream_summary summary = run_stream(source, settings_of(0, 2), processor_, {}, stop);
    interrupter.join();
    EXPECT_EQ(summary.stop_reason, "interrupted");
    EXPECT_FALSE(summary.failure);
    EXPECT_GT(summary.transformed, 0u);
}

TEST(ReplaySource, RefusesWhatItCannotDeliver)
{
    const auto refusal = [](auto&& action) {
        try {
            action();
        } catch (const Source_error& error) {
            return std::string(error.what());
        }
        return std::string("accepted");
    };
    const Pixel_format mono12p = *pixel_format_by_name("Mono12p");
    EXPECT_EQ(refusal([&] { Replay_source(mono12p, 0, "replay"); }), "a replay needs a rate above 0 frames/s");
    EXPECT_EQ(refusal([&] {
                  Replay_source source(mono12p, 10, "replay");
                  source.start(2);
              }),
              "replay: no frame to replay");
    Replay_source source(mono12p, 10, "replay");
    source.add(random_frame(8, 6, 12, 1));
    EXPECT_EQ(refusal([&] { source.add(random_frame(8, 4, 12, 1)); }), "a frame of 8x4 among frames of 8x6");
    Frame deep = random_frame(8, 6, 12, 1);
    deep.pixels[5] = 4096;
    EXPECT_EQ(refusal([&] { source.add(deep); }), "the sample 4096 does not fit Mono12p's 12 bits");
    EXPECT_EQ(source.frame_count(), 1u);
}

}  // namespace
