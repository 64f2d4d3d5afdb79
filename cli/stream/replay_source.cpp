#include "replay_source.hpp"

#include <algorithm>
#include <cstring>

namespace ksi_cli {

namespace {

Stream_clock::duration period_of(double frames_per_second)
{
    if (!(frames_per_second > 0))
        throw Source_error("a replay needs a rate above 0 frames/s");
    return std::chrono::duration_cast<Stream_clock::duration>(std::chrono::duration<double>(1.0 / frames_per_second));
}

}  // namespace

Replay_source::Replay_source(const Pixel_format& format, double frames_per_second, std::string name)
    : name_(std::move(name)), format_(format), period_(period_of(frames_per_second))
{
}

void Replay_source::add(const Frame& frame)
{
    if (packed_frames_.empty())
        region_ = {0, 0, frame.width, frame.height};
    if (frame.width != region_.width || frame.height != region_.height)
        throw Source_error("a frame of " + std::to_string(frame.width) + "x" + std::to_string(frame.height) +
                           " among frames of " + std::to_string(region_.width) + "x" + std::to_string(region_.height));
    const std::uint16_t largest = frame.pixels.empty() ? 0 : *std::max_element(frame.pixels.begin(), frame.pixels.end());
    if (format_.bit_depth < 16 && largest >> format_.bit_depth != 0)
        throw Source_error("the sample " + std::to_string(largest) + " does not fit " + format_.name + "'s " +
                           std::to_string(format_.bit_depth) + " bits");
    bit_depth_ = std::max(bit_depth_, frame.bit_depth);
    std::vector<std::uint8_t>& packed = packed_frames_.emplace_back(packed_size(format_.encoding, frame.pixels.size()));
    pack(format_.encoding, frame.pixels.data(), frame.pixels.size(), packed.data());
}

Replay_source::~Replay_source() { stop(); }

void Replay_source::start(unsigned buffers)
{
    if (packed_frames_.empty())
        throw Source_error(name_ + ": no frame to replay");
    buffers_.assign(buffers, std::vector<std::uint8_t>(packed_frames_.front().size()));
    for (std::vector<std::uint8_t>& buffer : buffers_)
        free_buffers_.push_back(buffer.data());
    delivery_ = std::thread([this] { deliver(); });
}

// Frame k is due k periods after the start; a delivery that comes late
// (the thread was not scheduled) is made at once, so that the rate holds on
// average, as a camera's does.
void Replay_source::deliver()
{
    Stream_clock::time_point due = Stream_clock::now();
    for (std::uint64_t number = 0;; ++number, due += period_) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (changed_.wait_until(lock, due, [this] { return stopping_; }))
            return;
        if (free_buffers_.empty()) {
            ++lost_;
            continue;
        }
        std::uint8_t* buffer = free_buffers_.back();
        free_buffers_.pop_back();
        lock.unlock();
        const std::vector<std::uint8_t>& frame = packed_frames_[number % packed_frames_.size()];
        std::memcpy(buffer, frame.data(), frame.size());
        lock.lock();
        ready_.push_back({buffer, buffer, Stream_clock::now()});
        ++delivered_;
        changed_.notify_all();
    }
}

std::optional<Delivered_frame> Replay_source::next(std::chrono::microseconds wait)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (!changed_.wait_for(lock, wait, [this] { return !ready_.empty(); }))
        return std::nullopt;
    const Delivered_frame frame = ready_.front();
    ready_.pop_front();
    return frame;
}

void Replay_source::give_back(const Delivered_frame& frame)
{
    std::lock_guard<std::mutex> lock(mutex_);
    free_buffers_.push_back(static_cast<std::uint8_t*>(frame.buffer));
}

std::optional<std::string> Replay_source::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (delivery_.joinable())
        delivery_.join();
    return std::nullopt;
}

}  // namespace ksi_cli
