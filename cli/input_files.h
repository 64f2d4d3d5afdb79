// The inputs of subcommands that read raw mosaics from files: files and
// directories on the command line, and the layout of headerless dumps.
#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "image_reading.h"

namespace ksi_cli {

struct Input_options {
    std::vector<std::string> inputs;
    std::string raw_size;             // --raw WIDTHxHEIGHT, as given
    std::string raw_format = "u16le";  // --raw-format
    std::optional<Raw_layout> raw;     // both, once checked
};

// Adds the positional INPUT... and --raw, --raw-format.
void add_input_options(CLI::App& command, Input_options& options, bool required);
// Run by the subcommand's callback: checks --raw and sets `raw`; a
// malformed size is a usage error (CLI::ValidationError).
void finish_input_options(Input_options& options);

// The files the inputs stand for. Files named stay as they are, missing
// ones included: reading them reports what is wrong. A directory stands for
// its image files (*.png, *.tif, *.tiff, *.pgm; *.raw with a raw layout), in
// name order; one that cannot be read or holds none adds a line
// "DIRECTORY: reason" to `problems`.
std::vector<std::filesystem::path> expand_inputs(const Input_options& options, std::vector<std::string>& problems);

}  // namespace ksi_cli
