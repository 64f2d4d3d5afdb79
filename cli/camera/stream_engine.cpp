#include "stream_engine.hpp"

#include <arv.h>

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
using Clock = std::chrono::steady_clock;

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
    ArvBuffer* camera_buffer = nullptr;
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

struct Gobject_unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};

void on_control_lost(ArvDevice*, gpointer lost_flag) { static_cast<std::atomic<bool>*>(lost_flag)->store(true); }

class Control_lost_watch {
public:
    Control_lost_watch(ArvDevice* device, std::atomic<bool>& lost)
        : device_(device), handler_(g_signal_connect(device, "control-lost", G_CALLBACK(on_control_lost), &lost))
    {
    }
    ~Control_lost_watch() { g_signal_handler_disconnect(device_, handler_); }
    Control_lost_watch(const Control_lost_watch&) = delete;
    Control_lost_watch& operator=(const Control_lost_watch&) = delete;

private:
    ArvDevice* device_;
    gulong handler_;
};

void throw_if_set(GError* error, const std::string& what)
{
    if (error == nullptr)
        return;
    const std::string message = what + ": " + error->message;
    g_error_free(error);
    throw Camera_error(message);
}

class Stream_run {
public:
    Stream_run(Camera& camera, const Pixel_format& format, const Stream_settings& settings,
               const kp::Processor& processor, const Frame_consumer& consumer,
               const std::atomic<bool>& stop_requested)
        : camera_(camera), format_(format), settings_(settings), processor_(processor), consumer_(consumer),
          stop_requested_(stop_requested)
    {
        summary_.region = camera.region();
        summary_.pixel_format = format.name;
        summary_.bit_depth = settings.frame.bit_depth >= 0 ? static_cast<unsigned>(settings.frame.bit_depth)
                                                           : format.bit_depth;
        summary_.origin_x = settings.origin ? settings.origin->first : summary_.region.x;
        summary_.origin_y = settings.origin ? settings.origin->second : summary_.region.y;
        if (summary_.region.width < 2 || summary_.region.height < 2)
            throw Camera_error("camera '" + camera.id() + "' delivers " + std::to_string(summary_.region.width) +
                               "x" + std::to_string(summary_.region.height) +
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

        ArvCamera* camera = camera_.handle();
        GError* error = nullptr;
        const guint payload = arv_camera_get_payload(camera, &error);
        throw_if_set(error, "camera '" + camera_.id() + "': cannot read its payload size");
        const std::size_t needed = packed_size(format_.encoding, pixel_count_);
        if (payload < needed)
            throw Camera_error("camera '" + camera_.id() + "' reports a payload of " + std::to_string(payload) +
                               " bytes, less than the " + std::to_string(needed) + " of a " +
                               std::to_string(summary_.region.width) + "x" + std::to_string(summary_.region.height) +
                               " " + format_.name + " frame");
        const std::unique_ptr<ArvStream, Gobject_unref> stream(arv_camera_create_stream(camera, nullptr, nullptr,
                                                                                        &error));
        throw_if_set(error, "camera '" + camera_.id() + "': cannot open a stream (busy in another program?)");
        // Enough buffers lent to Aravis that it can go on filling while every
        // slot is taken and a few frames wait to be dropped.
        for (unsigned i = 0; i < slot_count + 4; ++i)
            arv_stream_push_buffer(stream.get(), arv_buffer_new_allocate(payload));

        arv_camera_set_acquisition_mode(camera, ARV_ACQUISITION_MODE_CONTINUOUS, &error);
        throw_if_set(error, "camera '" + camera_.id() + "': cannot select continuous acquisition");
        std::atomic<bool> control_lost{false};
        const Control_lost_watch watch(arv_camera_get_device(camera), control_lost);
        arv_camera_start_acquisition(camera, &error);
        throw_if_set(error, "camera '" + camera_.id() + "': cannot start acquisition (busy in another program?)");

        const Clock::time_point start = Clock::now();
        std::vector<std::thread> workers;
        for (unsigned i = 0; i < threads; ++i)
            workers.emplace_back([&] { transform_frames(work, free_slots, stream.get()); });

        receive(stream.get(), free_slots, work, start, control_lost);
        // What the camera sends after this point is no longer ours to count.
        guint64 completed = 0, failures = 0, underruns = 0;
        arv_stream_get_statistics(stream.get(), &completed, &failures, &underruns);
        summary_.lost_upstream += failures + underruns;

        arv_camera_stop_acquisition(camera, &error);
        if (error != nullptr) {
            // A camera that is gone cannot be told to stop; the rest of the
            // shutdown still runs.
            if (!summary_.failure)
                summary_.failure = "camera '" + camera_.id() + "': stopping acquisition failed: " + error->message;
            g_clear_error(&error);
        }
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
    void receive(ArvStream* stream, Slot_queue& free_slots, Slot_queue& work, Clock::time_point start,
                 const std::atomic<bool>& control_lost)
    {
        const auto timeout = std::chrono::duration<double>(settings_.no_frame_timeout_seconds);
        const auto time_limit = std::chrono::duration<double>(settings_.seconds_limit);
        Clock::time_point last_frame = start;
        Clock::time_point next_status = start + std::chrono::seconds(1);
        std::uint64_t accepted = 0;
        for (;;) {
            const Clock::time_point now = Clock::now();
            if (stop_requested_.load()) {
                summary_.stop_reason = "interrupted";
                break;
            }
            if (control_lost.load()) {
                summary_.failure = "camera '" + camera_.id() + "' was lost during the stream";
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
                summary_.failure = "no complete frame from camera '" + camera_.id() + "' within " + seconds + " s";
                break;
            }
            if (settings_.status_line && now >= next_status) {
                print_status(stream, now - start);
                next_status += std::chrono::seconds(1);
            }

            ArvBuffer* buffer = arv_stream_timeout_pop_buffer(stream, 100000);
            const Clock::time_point arrival = Clock::now();
            if (buffer == nullptr)
                continue;
            // Aravis counts incomplete buffers itself; frames of another
            // size or format than the one set up are counted here.
            if (arv_buffer_get_status(buffer) != ARV_BUFFER_STATUS_SUCCESS) {
                arv_stream_push_buffer(stream, buffer);
                continue;
            }
            if (!is_expected(buffer)) {
                ++summary_.lost_upstream;
                arv_stream_push_buffer(stream, buffer);
                continue;
            }
            last_frame = arrival;
            const std::uint64_t number = summary_.received++;
            Frame_slot* slot = free_slots.try_pop();
            if (slot == nullptr) {
                ++summary_.dropped_busy;
                arv_stream_push_buffer(stream, buffer);
                continue;
            }
            slot->camera_buffer = buffer;
            slot->number = number;
            slot->arrival = arrival;
            work.push(slot);
            ++accepted;
        }
        if (settings_.status_line)
            std::fputs("\n", stderr);
    }

    // A buffer of status success holds a complete image in a buffer of the
    // payload size checked at the start; only its geometry and format are
    // left to compare. (Aravis's simulated camera leaves the received size
    // at 0 when a custom fill pattern writes the pixels, so the check does
    // not rest on it.)
    bool is_expected(ArvBuffer* buffer) const
    {
        return arv_buffer_get_image_data(buffer, nullptr) != nullptr &&
               arv_buffer_get_image_width(buffer) == summary_.region.width &&
               arv_buffer_get_image_height(buffer) == summary_.region.height &&
               arv_buffer_get_image_pixel_format(buffer) == format_.code;
    }

    void transform_frames(Slot_queue& work, Slot_queue& free_slots, ArvStream* stream)
    {
        Frame_processor outputs(processor_, frame_settings_);
        while (Frame_slot* slot = work.pop()) {
            std::size_t size = 0;
            const auto* pixels = static_cast<const std::uint8_t*>(arv_buffer_get_image_data(slot->camera_buffer,
                                                                                             &size));
            unpack(format_.encoding, pixels, pixel_count_, slot->frame.pixels.data());
            arv_stream_push_buffer(stream, slot->camera_buffer);
            slot->camera_buffer = nullptr;
            // After a failure the remaining frames only give their camera
            // buffers back.
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

    void print_status(ArvStream* stream, Clock::duration elapsed)
    {
        Stream_summary now = summary_;
        statistics_.fill(now);
        guint64 completed = 0, failures = 0, underruns = 0;
        arv_stream_get_statistics(stream, &completed, &failures, &underruns);
        now.lost_upstream += failures + underruns;
        now.seconds = std::chrono::duration<double>(elapsed).count();
        std::fprintf(stderr, "\r%s\033[K", counts_line(now).c_str());
        std::fflush(stderr);
    }

    Camera& camera_;
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

Stream_summary run_stream(Camera& camera, const Pixel_format& format, const Stream_settings& settings,
                          const kp::Processor& processor, const Frame_consumer& consumer,
                          const std::atomic<bool>& stop_requested)
{
    return Stream_run(camera, format, settings, processor, consumer, stop_requested).run();
}

}  // namespace ksi_cli
