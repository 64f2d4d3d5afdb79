// Writing images: 16-bit grey or RGB PNG or TIFF, float32 two-sample TIFF,
// 8-bit RGB PNG. Every file is written under a temporary name in its final directory
// and renamed only once complete, so a reader never sees half a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>

#include "output_naming.h"

namespace ksi_cli {

class Output_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Every PNG is written with the Sub filter and zlib's run-length strategy at
// level 1. On 16-bit camera images this encodes about three times as fast as
// level 1 with libpng's adaptive filters and twenty times as fast as level 6,
// and the files come out as small as level 6 makes them: after the Sub
// filter, neighbouring differences are small and run-length matching finds
// what longer searches would.
inline constexpr int png_compression_level = 1;

// A temporary file beside `final_path`. commit() renames it to the final
// name; a staged file that is never committed is removed.
class Staged_file {
public:
    explicit Staged_file(std::filesystem::path final_path);
    ~Staged_file();
    Staged_file(const Staged_file&) = delete;
    Staged_file& operator=(const Staged_file&) = delete;
    Staged_file(Staged_file&& other) noexcept;
    Staged_file& operator=(Staged_file&&) = delete;

    const std::filesystem::path& final_path() const { return final_path_; }
    const std::filesystem::path& temporary_path() const { return temporary_path_; }
    // Hands the open descriptor to an encoder, which closes it.
    int take_descriptor();
    void commit();

private:
    std::filesystem::path final_path_;
    std::filesystem::path temporary_path_;
    int descriptor_ = -1;
    bool committed_ = false;
};

// Grey 16-bit samples. With significant_bits below 16 (PNG only) the samples
// are stored shifted up and marked with an sBIT chunk, as PNG defines it.
void write_gray16(Staged_file& file, Image_format format, const std::uint16_t* samples, std::int32_t width,
                  std::int32_t height, int significant_bits = 16);
// Three 16-bit samples per pixel, R G B.
void write_rgb16(Staged_file& file, Image_format format, const std::uint16_t* samples, std::int32_t width,
                 std::int32_t height);
// Two 32-bit float samples per pixel, interleaved.
void write_float_pairs_tiff(Staged_file& file, const float* samples, std::int32_t width, std::int32_t height);
// Three bytes per pixel, R G B.
void write_rgb8_png(Staged_file& file, const std::uint8_t* samples, std::int32_t width, std::int32_t height);

}  // namespace ksi_cli
