// Running the built ksi-polarization, writing its input files and reading its
// output files with libpng and libtiff, and the library's own transform of
// the same frame through the C interface, for comparison.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cli_test {

struct Run_result {
    int exit_status = -1;
    std::string out;
    std::string err;
};

// Runs the tool with `arguments` in `directory`, capturing both streams.
Run_result run_tool(const std::vector<std::string>& arguments, const std::filesystem::path& directory);

// A fresh directory, removed with everything in it.
class Temporary_directory {
public:
    Temporary_directory();
    ~Temporary_directory();
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

// Every file name in a directory, sorted; empty if it does not exist.
std::vector<std::string> file_names(const std::filesystem::path& directory);
std::vector<std::uint8_t> file_bytes(const std::filesystem::path& file);
void write_bytes(const std::filesystem::path& file, const std::vector<std::uint8_t>& bytes);

struct Image {
    std::int32_t width = 0;
    std::int32_t height = 0;
    int channels = 1;
    int depth = 16;              // bits per stored sample
    int significant_bits = 0;    // PNG sBIT, 0 when absent
    std::vector<std::uint16_t> samples;  // as stored (PNG: not shifted back)
    std::vector<float> floats;           // float TIFFs
};

// A random mosaic of `bits`-bit samples.
std::vector<std::uint16_t> random_mosaic(std::int32_t width, std::int32_t height, int bits, unsigned seed);

// PNG: grey or RGB; samples are written as given with the sBIT chunk set to
// significant_bits when that is non-zero (the caller shifts the samples).
void write_png(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples, std::int32_t width,
               std::int32_t height, int depth, int channels = 1, int significant_bits = 0);
// TIFF of unsigned samples in strips (tile_size 0) or square tiles.
void write_tiff(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples, std::int32_t width,
                std::int32_t height, int depth, int channels = 1, std::uint32_t tile_size = 0,
                std::uint32_t rows_per_strip = 7);
void write_pgm(const std::filesystem::path& file, const std::vector<std::uint16_t>& samples, std::int32_t width,
               std::int32_t height, unsigned maximum);

Image read_png(const std::filesystem::path& file);
Image read_tiff(const std::filesystem::path& file);

// The six outputs of kl_polarization_processor_transform.
struct Transform_result {
    std::vector<float> normalized;
    std::array<std::vector<std::uint16_t>, 5> images;  // s0, s1, s2, azimuth, dolp
};

struct Transform_arguments {
    int phase = 0;  // 0..3
    std::int32_t origin_x = 0;
    std::int32_t origin_y = 0;
    std::uint32_t bit_depth = 16;
    std::uint16_t output_maximum = 65535;
    std::optional<std::array<std::array<float, 16>, 4>> calibration;
};

Transform_result library_transform(const std::vector<std::uint16_t>& frame, std::int32_t width, std::int32_t height,
                                   const Transform_arguments& arguments);

// Reads <directory>/<stem>_{s0,s1,s2,aolp,dolp}.<extension> and
// <stem>_normalized.tiff and expects them equal to the library's transform
// (the float pairs bit for bit).
void expect_images_equal_library(const std::filesystem::path& directory, const std::string& stem,
                                 const std::vector<std::uint16_t>& frame, std::int32_t width, std::int32_t height,
                                 const Transform_arguments& arguments, const std::string& extension = "png");

// Every output of the six that expect_images_equal_library checks.
inline const char* const all_images = "normalized,s0,s1,s2,aolp,dolp";

}  // namespace cli_test
