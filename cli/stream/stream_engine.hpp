// The live stream: frames from a source (a camera, or frames replayed from
// memory), transformed by a pool of threads that share one processor handle.
//
// The buffers are a fixed set: frame slots (one 16-bit frame each) and the
// buffers lent to the source, allocated before delivery starts, and each
// worker's outputs, sized by its first frame and reused after. A source
// buffer goes back to the source as soon as its pixels are unpacked into a
// slot; when every slot is busy the frame is dropped at once, so the source
// never waits on the transforms.
#ifndef KSI_STREAM_STREAM_ENGINE_HPP
#define KSI_STREAM_STREAM_ENGINE_HPP

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <kestrion_ksi_polarization_processor.hpp>

#include "frame_processing.h"
#include "frame_source.hpp"

namespace ksi_cli {

struct Stream_summary;

// Called on the receiving thread about once a status interval with the
// counts so far; it must return quickly.
using Status_listener = std::function<void(const Stream_summary&)>;

struct Stream_settings {
    // Phase, bit depth (-1: the source's), output maximum and the outputs
    // every frame gets. Its origin is replaced by `origin` below or the
    // source region's offsets.
    Frame_settings frame;
    // Sensor position of the region's first pixel; by default the source
    // region's (a camera's OffsetX and OffsetY).
    std::optional<std::pair<int, int>> origin;
    std::uint64_t frame_limit = 0;  // stop after this many transformed frames; 0: no limit
    double seconds_limit = 0;       // stop after this many seconds; 0: no limit
    unsigned threads = 1;
    unsigned frame_slots = 0;  // 0: threads + 2
    double no_frame_timeout_seconds = 5;
    Status_listener status;
    double status_interval_seconds = 1;
};

struct Transformed_frame {
    std::uint64_t number;  // count of intact frames received before this one
    const Frame& frame;
    // Holds the outputs of this frame until the consumer returns; its
    // write() records them.
    Frame_processor& outputs;
};

// Called on the transforming thread for every transformed frame, before its
// slot is reused; an exception stops the stream.
using Frame_consumer = std::function<void(const Transformed_frame&)>;

struct Stream_summary {
    Region region;
    std::string pixel_format;
    unsigned bit_depth = 0;
    int origin_x = 0;
    int origin_y = 0;
    std::uint64_t received = 0;       // whole frames delivered by the source
    std::uint64_t transformed = 0;
    std::uint64_t lost_upstream = 0;  // incomplete, or no source buffer free: camera or network
    std::uint64_t dropped_busy = 0;   // every frame slot was busy
    double seconds = 0;
    double transform_cpu_seconds = 0;
    double latency_median_ms = 0;     // buffer arrival to outputs ready, to within 3%
    double latency_max_ms = 0;
    std::string stop_reason;          // "frame limit", "time limit", "interrupted", or the failure
    std::optional<std::string> failure;

    double frames_per_second() const;
    double mpixel_per_second() const;
    double transform_core_share() const;  // transform time over elapsed time
};

// "received 240, transformed 240, lost upstream 0, dropped (all buffers busy) 0;
// 24.0 frames/s, 100.7 Mpixel/s; latency median 5.1 ms, max 9.8 ms"
std::string counts_line(const Stream_summary& summary);
// The counts line plus the stream's set-up, duration, the transforms' share
// of one core and why it stopped, on a few lines.
std::string summary_text(const Stream_summary& summary);

// Streams until a limit is reached, stop_requested becomes true, or a
// failure (source lost, no frame within the timeout, a consumer's
// exception); in every case delivery is stopped and every buffer released
// before it returns. Failures to start throw Source_error.
Stream_summary run_stream(Frame_source& source, const Stream_settings& settings,
                          const kestrion::polarization::Processor& processor, const Frame_consumer& consumer,
                          const std::atomic<bool>& stop_requested);

}  // namespace ksi_cli

#endif
