// The options every subcommand that transforms frames shares: phase,
// origin, bit depth, output maximum, calibration, outputs, format and the
// output directory.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "frame_processing.h"
#include "kestrion_ksi_polarization_processor.hpp"

namespace ksi_cli {

struct Transform_options {
    Frame_settings settings;
    std::optional<kestrion::polarization::Calibration> calibration;
};

// Adds the options to `command`; their values land in `options` as they are
// parsed, and a bad value is a usage error.
void add_transform_options(CLI::App& command, Transform_options& options);

// "X,Y" or "WIDTHxHEIGHT" into two integers; false if the text is not that.
bool parse_integer_pair(const std::string& text, char separator, long long& first, long long& second);

}  // namespace ksi_cli
