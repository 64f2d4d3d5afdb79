// The options that choose a stream's frames, shared by the subcommands that
// stream: a camera (--camera ID with --simulated, --pixel-format, --region,
// --frame-rate), or files replayed in a loop at --rate frames per second
// (INPUT... as `process` takes them, delivered packed in --pixel-format).
#ifndef KSI_CAMERA_SOURCE_OPTIONS_HPP
#define KSI_CAMERA_SOURCE_OPTIONS_HPP

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "camera.hpp"
#include "frame_source.hpp"
#include "input_files.h"

namespace ksi_cli {

struct Source_options {
    std::string camera;  // empty: replay the inputs
    bool simulated = false;
    std::optional<std::string> pixel_format;
    std::optional<Region> region;
    std::optional<double> frame_rate;
    Input_options replay;
    double rate = 30;
};

void add_source_options(CLI::App& command, Source_options& options);
// Run by the subcommand's callback: a camera or inputs, not both, and the
// options that belong to the other kind left out; a usage error otherwise.
void finish_source_options(const CLI::App& command, Source_options& options);

// An open source. A camera stays reachable for its features (exposure,
// gain, ...); a replay has none.
struct Opened_source {
    std::unique_ptr<Camera> camera;
    std::unique_ptr<Frame_source> source;
};

// Opens the camera and applies the region, frame rate and pixel format, or
// reads every input file for the replay. Throws Source_error (Camera_error)
// with the line a user sees: a file that cannot be read is named.
Opened_source open_source(const Source_options& options);

}  // namespace ksi_cli

#endif
