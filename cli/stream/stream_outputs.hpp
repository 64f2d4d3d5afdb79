// What a live stream leaves on disk: every K-th frame's outputs under the
// tool's usual names with the frame number as stem, and a preview picture
// rewritten about once a second.
#ifndef KSI_STREAM_STREAM_OUTPUTS_HPP
#define KSI_STREAM_STREAM_OUTPUTS_HPP

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "stream_engine.hpp"

namespace ksi_cli {

struct Recording {
    std::filesystem::path directory;
    std::uint64_t every = 1;  // frames whose number is a multiple of this
    Output_set outputs;
};

class Stream_outputs {
public:
    Stream_outputs(std::optional<Recording> recording, std::optional<std::filesystem::path> preview,
                   std::uint16_t output_maximum);

    // The settings of the stream's transforms: `requested` with the
    // recording directory, computing the outputs recorded and, for the
    // preview, the azimuth and DoLP.
    Frame_settings frame_settings(Frame_settings requested) const;

    // A Frame_consumer; called on the transforming threads.
    void operator()(const Transformed_frame& frame);

    // "frame_00000042": the stem of frame 42's files.
    static std::string stem(std::uint64_t number);

private:
    void write_preview(const Transformed_frame& frame);

    std::optional<Recording> recording_;
    std::optional<std::filesystem::path> preview_;
    std::uint16_t output_maximum_;
    std::atomic<std::int64_t> next_preview_{0};  // steady-clock nanoseconds
    std::mutex preview_mutex_;
    std::vector<std::uint8_t> preview_rgb_;
};

}  // namespace ksi_cli

#endif
