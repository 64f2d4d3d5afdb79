// The options every subcommand that transforms frames shares: sensor,
// colour order, phase, origin, bit depth, output maximum, calibration,
// outputs, format and the output directory.
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
    bool outputs_given = false;
    bool origin_given = false;
};

// Adds the options to `command`; their values land in `options` as they are
// parsed, and a bad value is a usage error.
void add_transform_options(CLI::App& command, Transform_options& options);

// Once every option is parsed (from the subcommand's callback): without
// --outputs, the sensor's default outputs; with it, every output named must
// be the sensor's; a colour sensor's --origin must be even. Throws
// CLI::ValidationError, a usage error.
void settle_transform_options(Transform_options& options);

// "X,Y" or "WIDTHxHEIGHT" into two integers; false if the text is not that.
bool parse_integer_pair(const std::string& text, char separator, long long& first, long long& second);

}  // namespace ksi_cli
