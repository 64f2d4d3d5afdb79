#include "stream_engine.hpp"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "latency_histogram.hpp"

namespace ksi_cli {

namespace kp = kestrion::polarization;
using Clock = Stream_clock;

double Stream_summary::frames_per_second() const { return seconds > 0 ? transformed / seconds : 0; }

double Stream_summary::mpixel_per_second() const
{
    return frames_per_second() * region.width * region.height / 1e6;
}

double Stream_summary::transform_core_share() const { return seconds > 0 ? transform_cpu_seconds / seconds : 0; }

std::string counts_line(const Stream_summary& summary)
{
    char line[320];
    std::snprintf(line, sizeof line,
                  "received %llu, transformed %llu, lost upstream %llu, dropped (all buffers busy) %llu; "
                  "%.1f frames/s, %.1f Mpixel/s; latency median %.2f ms, max %.2f ms",
                  static_cast<unsigned long long>(summary.received),
                  static_cast<unsigned long long>(summary.transformed),
                  static_cast<unsigned long long>(summary.lost_upstream),
                  static_cast<unsigned long long>(summary.dropped_busy), summary.frames_per_second(),
                  summary.mpixel_per_second(), summary.latency_median_ms, summary.latency_max_ms);
    return line;
}

std::string summary_text(const Stream_summary& summary)
{
    std::ostringstream text;
    text << "stream: " << summary.region.width << "x" << summary.region.height << " " << summary.pixel_format
         << " at offset " << summary.region.x << "," << summary.region.y << ", bit depth " << summary.bit_depth
         << ", origin " << summary.origin_x << "," << summary.origin_y << "\n";
    text << counts_line(summary) << "\n";
    char tail[160];
    std::snprintf(tail, sizeof tail, "%.2f s, transforms used %.0f%% of one core; stopped: ", summary.seconds,
                  100 * summary.transform_core_share());
    text << tail << summary.stop_reason << "\n";
    return text.str();
}

namespace {

// One camera frame, unpacked; allocated before acquisition starts.
struct Frame_slot {
    Frame frame;
    // Set by the receiving thread for the worker.
    Delivered_frame delivered;
    std::uint64_t number = 0;
    Clock::time_point arrival;
};

// A bounded queue of slots over storage reserved once; it never holds more
// than the number of slots, so pushes never block.
class Slot_queue {
public:
    explicit Slot_queue(std::size_t capacity) : ring_(capacity) {}

    void push(Frame_slot* slot)
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            ring_[(head_ + size_) % ring_.size()] = slot;
            ++size_;
        }
        ready_.notify_one();
    }

    Frame_slot* try_pop()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return take();
    }

    // Blocks until a slot is there, or returns null once closed and empty.
    Frame_slot* pop()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait(lock, [this] { return size_ > 0 || closed_; });
        return take();
    }

    void close()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            closed_ = true;
        }
        ready_.notify_all();
    }

private:
    Frame_slot* take()
    {
        if (size_ == 0)
            return nullptr;
        Frame_slot* slot = ring_[head_];
        head_ = (head_ + 1) % ring_.size();
        --size_;
        return slot;
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<Frame_slot*> ring_;
    std::size_t head_ = 0;
    std::size_t size_ = 0;
    bool closed_ = false;
};

// What the workers report back, under one lock.
class Stream_statistics {
public:
    void add(Clock::duration latency, double transform_cpu_seconds)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        latencies_.add(static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(latency).count()));
        transform_cpu_seconds_ += transform_cpu_seconds;
    }

    void fail(const std::string& failure)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!failure_)
            failure_ = failure;
        failed_ = true;
    }

    bool failed() const noexcept { return failed_; }

    void fill(Stream_summary& summary) const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        summary.transformed = latencies_.count();
        summary.transform_cpu_seconds = transform_cpu_seconds_;
        summary.latency_median_ms = latencies_.median() / 1000;
        summary.latency_max_ms = static_cast<double>(latencies_.maximum()) / 1000;
        if (failure_)
            summary.failure = failure_;
    }

private:
    mutable std::mutex mutex_;
    Latency_histogram latencies_;
    double transform_cpu_seconds_ = 0;
    std::optional<std::string> failure_;
    std::atomic<bool> failed_{false};
};

class Stream_run {
public:
    Stream_run(Frame_source& source, const Stream_settings& settings, const kp::Processor& processor,
               const Frame_consumer& consumer, const std::atomic<bool>& stop_requested)
        : source_(source), format_(source.pixel_format()), settings_(settings), processor_(processor),
          consumer_(consumer), stop_requested_(stop_requested)
    {
        summary_.region = source.region();
        summary_.pixel_format = format_.name;
        summary_.bit_depth = settings.frame.bit_depth >= 0 ? static_cast<unsigned>(settings.frame.bit_depth)
                                                           : source.bit_depth();
        summary_.origin_x = settings.origin ? settings.origin->first : summary_.region.x;
        summary_.origin_y = settings.origin ? settings.origin->second : summary_.region.y;
        if (summary_.region.width < 2 || summary_.region.height < 2)
            throw Source_error(source.name() + " delivers " + std::to_string(summary_.region.width) + "x" +
                               std::to_string(summary_.region.height) +
                               " frames; the transform needs at least 2x2");
        pixel_count_ = static_cast<std::size_t>(summary_.region.width) * summary_.region.height;
        frame_settings_ = settings.frame;
        frame_settings_.origin_x = summary_.origin_x;
        frame_settings_.origin_y = summary_.origin_y;
    }

    Stream_summary run()
    {
        const unsigned threads = std::max(1u, settings_.threads);
        const unsigned slot_count = settings_.frame_slots != 0 ? settings_.frame_slots : threads + 2;
        std::vector<Frame_slot> slots(slot_count);
        Slot_queue free_slots(slot_count);
        Slot_queue work(slot_count);
        for (Frame_slot& slot : slots) {
            slot.frame.pixels.resize(pixel_count_);
            slot.frame.width = summary_.region.width;
            slot.frame.height = summary_.region.height;
            slot.frame.bit_depth = summary_.bit_depth;
            free_slots.push(&slot);
        }

        // Enough buffers lent to the source that it can go on filling while
        // every slot is taken and a few frames wait to be dropped.
        source_.start(slot_count + 4);
        const Clock::time_point start = Clock::now();
        std::vector<std::thread> workers;
        for (unsigned i = 0; i < threads; ++i)
            workers.emplace_back([&] { transform_frames(work, free_slots); });

        receive(free_slots, work, start);
        // What the source delivers after this point is no longer ours to count.
        summary_.lost_upstream += source_.lost();
        if (std::optional<std::string> stop_failure = source_.stop(); stop_failure && !summary_.failure)
            summary_.failure = stop_failure;
        work.close();
        for (std::thread& worker : workers)
            worker.join();
        summary_.seconds = std::chrono::duration<double>(Clock::now() - start).count();

        const std::optional<std::string> receive_failure = summary_.failure;
        statistics_.fill(summary_);
        if (receive_failure)
            summary_.failure = receive_failure;
        if (summary_.failure)
            summary_.stop_reason = *summary_.failure;
        return summary_;
    }

private:
    void receive(Slot_queue& free_slots, Slot_queue& work, Clock::time_point start)
    {
        const auto timeout = std::chrono::duration<double>(settings_.no_frame_timeout_seconds);
        const auto time_limit = std::chrono::duration<double>(settings_.seconds_limit);
        const auto status_interval = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(settings_.status_interval_seconds));
        Clock::time_point last_frame = start;
        Clock::time_point next_status = start + status_interval;
        std::uint64_t accepted = 0;
        for (;;) {
            const Clock::time_point now = Clock::now();
            if (stop_requested_.load()) {
                summary_.stop_reason = "interrupted";
                break;
            }
            if (std::optional<std::string> failure = source_.failure()) {
                summary_.failure = failure;
                break;
            }
            if (statistics_.failed())
                break;
            if (settings_.frame_limit != 0 && accepted >= settings_.frame_limit) {
                summary_.stop_reason = "frame limit";
                break;
            }
            if (settings_.seconds_limit > 0 && now - start >= time_limit) {
                summary_.stop_reason = "time limit";
                break;
            }
            if (now - last_frame >= timeout) {
                char seconds[32];
                std::snprintf(seconds, sizeof seconds, "%g", settings_.no_frame_timeout_seconds);
                summary_.failure = "no complete frame from " + source_.name() + " within " + seconds + " s";
                break;
            }
            if (settings_.status && now >= next_status) {
                report_status(now - start);
                next_status += status_interval;
            }

            const std::optional<Delivered_frame> delivered = source_.next(std::chrono::milliseconds(100));
            if (!delivered)
                continue;
            last_frame = delivered->arrival;
            const std::uint64_t number = summary_.received++;
            Frame_slot* slot = free_slots.try_pop();
            if (slot == nullptr) {
                ++summary_.dropped_busy;
                source_.give_back(*delivered);
                continue;
            }
            slot->delivered = *delivered;
            slot->number = number;
            slot->arrival = delivered->arrival;
            work.push(slot);
            ++accepted;
        }
    }

    void transform_frames(Slot_queue& work, Slot_queue& free_slots)
    {
        Frame_processor outputs(processor_, frame_settings_);
        while (Frame_slot* slot = work.pop()) {
            unpack(format_.encoding, slot->delivered.pixels, pixel_count_, slot->frame.pixels.data());
            source_.give_back(slot->delivered);
            slot->delivered = {};
            // After a failure the remaining frames only give their buffers
            // back.
            if (!statistics_.failed())
                transform(*slot, outputs);
            free_slots.push(slot);
        }
    }

    void transform(const Frame_slot& slot, Frame_processor& outputs)
    {
        try {
            const double cpu_before = thread_cpu_seconds();
            outputs.transform(slot.frame);
            const double cpu_after = thread_cpu_seconds();
            statistics_.add(Clock::now() - slot.arrival, cpu_after - cpu_before);
            if (consumer_)
                consumer_({slot.number, slot.frame, outputs});
        } catch (const std::exception& failure) {
            statistics_.fail(failure.what());
        }
    }

    void report_status(Clock::duration elapsed)
    {
        Stream_summary now = summary_;
        statistics_.fill(now);
        now.lost_upstream += source_.lost();
        now.seconds = std::chrono::duration<double>(elapsed).count();
        settings_.status(now);
    }

    Frame_source& source_;
    const Pixel_format format_;
    const Stream_settings& settings_;
    const kp::Processor& processor_;
    const Frame_consumer& consumer_;
    const std::atomic<bool>& stop_requested_;
    Stream_summary summary_;
    Stream_statistics statistics_;
    std::size_t pixel_count_ = 0;
    Frame_settings frame_settings_;
};

}  // namespace

Stream_summary run_stream(Frame_source& source, const Stream_settings& settings, const kp::Processor& processor,
                          const Frame_consumer& consumer, const std::atomic<bool>& stop_requested)
{
    return Stream_run(source, settings, processor, consumer, stop_requested).run();
}

}  // namespace ksi_cli
