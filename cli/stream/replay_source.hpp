// Frames held in memory as a frame source: delivered in a loop at a set
// rate, each packed in a pixel format as a camera would send it, into the
// buffers lent to the source. The live viewer replays files through it, and
// tests and benchmarks drive the stream engine at camera rates with it.
#ifndef KSI_STREAM_REPLAY_SOURCE_HPP
#define KSI_STREAM_REPLAY_SOURCE_HPP

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "frame_source.hpp"
#include "image_reading.h"

namespace ksi_cli {

class Replay_source : public Frame_source {
public:
    // Throws Source_error for a rate that is not above 0.
    Replay_source(const Pixel_format& format, double frames_per_second, std::string name);
    // Packs a frame into the format and adds it to the loop, before start().
    // Every frame has the first one's size, and its samples fit the format
    // (at most 8 bits for Mono8, 10 for Mono10, 12 for the 12-bit formats);
    // otherwise Source_error, which says what differs. The bit depth is the
    // deepest of the frames'.
    void add(const Frame& frame);
    std::size_t frame_count() const { return packed_frames_.size(); }
    ~Replay_source() override;
    Replay_source(const Replay_source&) = delete;
    Replay_source& operator=(const Replay_source&) = delete;

    std::string name() const override { return name_; }
    Region region() const override { return region_; }
    Pixel_format pixel_format() const override { return format_; }
    unsigned bit_depth() const override { return bit_depth_; }

    // Throws Source_error when no frame was added.
    void start(unsigned buffers) override;
    std::optional<Delivered_frame> next(std::chrono::microseconds wait) override;
    void give_back(const Delivered_frame& frame) override;
    std::uint64_t lost() override { return lost_.load(); }
    std::optional<std::string> failure() override { return std::nullopt; }
    std::optional<std::string> stop() override;

    // Frames delivered so far; the n-th delivered is frame n mod count.
    std::uint64_t delivered() const { return delivered_.load(); }

private:
    void deliver();

    const std::string name_;
    const Pixel_format format_;
    const Stream_clock::duration period_;
    Region region_;
    unsigned bit_depth_ = 0;
    std::vector<std::vector<std::uint8_t>> packed_frames_;

    std::vector<std::vector<std::uint8_t>> buffers_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::uint8_t*> free_buffers_;
    std::deque<Delivered_frame> ready_;
    bool stopping_ = false;
    std::atomic<std::uint64_t> lost_{0};
    std::atomic<std::uint64_t> delivered_{0};
    std::thread delivery_;
};

}  // namespace ksi_cli

#endif
