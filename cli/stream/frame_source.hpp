// Where the stream engine's frames come from: a camera, or frames held in
// memory and delivered at a set rate. Every source hands the engine whole
// frames of one region and pixel format, packed as a camera sends them, in
// buffers it lends: the engine unpacks each on a worker and gives the buffer
// back at once, so a source never waits for the transforms.
#ifndef KSI_STREAM_FRAME_SOURCE_HPP
#define KSI_STREAM_FRAME_SOURCE_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "pixel_formats.hpp"

namespace ksi_cli {

// A source that cannot be opened or started; the text is the one line a
// user sees.
class Source_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The frames' size and their place on the sensor.
struct Region {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

using Stream_clock = std::chrono::steady_clock;

// One delivered frame, lent to the engine until given back.
struct Delivered_frame {
    const std::uint8_t* pixels = nullptr;  // packed_size(format, width x height) bytes
    void* buffer = nullptr;                // the source's own record of the buffer
    Stream_clock::time_point arrival;
};

class Frame_source {
public:
    virtual ~Frame_source() = default;

    // How messages name the source: "camera 'Fake_1'", "replay of 3 files".
    virtual std::string name() const = 0;
    // Fixed from construction to the end of the stream.
    virtual Region region() const = 0;
    virtual Pixel_format pixel_format() const = 0;
    // Significant bits of a pixel: the format's, or what the frames hold.
    virtual unsigned bit_depth() const = 0;

    // Lends itself `buffers` buffers and starts delivering. Throws
    // Source_error.
    virtual void start(unsigned buffers) = 0;
    // The next whole frame of the region and format, waiting at most `wait`.
    // Frames the source could not deliver whole are counted by lost() and
    // never returned.
    virtual std::optional<Delivered_frame> next(std::chrono::microseconds wait) = 0;
    // Returns a frame's buffer to the source; called from any thread.
    virtual void give_back(const Delivered_frame& frame) = 0;
    // Frames lost before delivery so far: incomplete, of another size or
    // format, or no free buffer when they came.
    virtual std::uint64_t lost() = 0;
    // Set once the source can deliver no more (a camera gone).
    virtual std::optional<std::string> failure() = 0;
    // Stops delivery; what went wrong, if anything (a camera that is gone
    // cannot be told to stop). Buffers lent out may still be given back.
    virtual std::optional<std::string> stop() = 0;
};

}  // namespace ksi_cli

#endif
