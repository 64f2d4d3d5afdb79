// Reading raw mosaics from files into 16-bit frames: single-channel 8- and
// 16-bit PNG and TIFF, binary PGM, and headerless raw dumps.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ksi_cli {

// A frame as the library takes it: row-major, no row gap, the samples in
// their original range of bit_depth bits.
struct Frame {
    std::vector<std::uint16_t> pixels;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::uint32_t bit_depth = 16;
};

enum class Raw_sample_format { u8, u16le, u16be };

// Headerless dumps: every file holds exactly width x height samples.
struct Raw_layout {
    std::int32_t width = 0;
    std::int32_t height = 0;
    Raw_sample_format format = Raw_sample_format::u16le;
};

// Why a file cannot be read, in words that follow the file's name:
// "missing", "truncated or corrupt PNG (...)", ...
class Input_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads one file into `frame`, reusing its storage. With a raw layout the
// file is a raw dump; otherwise its first bytes tell PNG, TIFF or PGM.
// Throws Input_error.
void read_frame(const std::filesystem::path& file, const std::optional<Raw_layout>& raw, Frame& frame);

// Whether a directory entry is one of the files that a directory input
// stands for: *.png, *.tif, *.tiff and *.pgm, or *.raw for raw dumps.
bool is_input_file_name(const std::filesystem::path& file, bool raw);

}  // namespace ksi_cli
