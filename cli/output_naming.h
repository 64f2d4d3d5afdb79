// The outputs the tool can write, their names on the command line and the
// names of their files.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ksi_cli {

enum class Output : std::uint8_t {
    normalized, s0, s1, s2, aolp, dolp, aolp_color, dolp_color,
    imin, imax,  // least and greatest intensity over polarizer angles
    // Colour sensors only: RGB intensity, and angle and degree per colour.
    s0_color, aolp_r, aolp_g, aolp_b, dolp_r, dolp_g, dolp_b
};

inline constexpr std::array<Output, 17> every_output{
    Output::normalized, Output::s0,     Output::s1,     Output::s2,     Output::aolp,   Output::dolp,
    Output::aolp_color, Output::dolp_color, Output::imin, Output::imax, Output::s0_color, Output::aolp_r,
    Output::aolp_g,     Output::aolp_b, Output::dolp_r, Output::dolp_g, Output::dolp_b};

// A monochrome sensor has one 2x2 polarizer quartet under no colour filter;
// a colour sensor has 4x4 super-pixels of four quartets under Bayer filters
// (cli/color_sensor).
enum class Sensor : std::uint8_t { mono, color };

const char* sensor_name(Sensor sensor);
// Whether `sensor` has `output`: the library's per-pixel slots (normalized,
// s0, s1, s2) are the monochrome sensor's, s0_color and the per-colour
// images the colour sensor's; the rest both have.
bool sensor_has_output(Sensor sensor, Output output);

// The container of the 16-bit images (grey, and RGB for s0_color); the
// float pair is always TIFF and the pictures always PNG.
enum class Image_format { png, tiff };

const char* output_name(Output output);
std::optional<Output> output_from_name(const std::string& name);
std::vector<std::string> output_names();

// A set of outputs, small enough to copy into every worker.
class Output_set {
public:
    Output_set() = default;
    static Output_set of(const std::vector<Output>& outputs);
    // Every output `sensor` has.
    static Output_set every_output_of(Sensor sensor);
    void add(Output output) { bits_ |= bit(output); }
    bool contains(Output output) const { return (bits_ & bit(output)) != 0; }
    bool empty() const { return bits_ == 0; }

private:
    static std::uint32_t bit(Output output) { return 1u << static_cast<unsigned>(output); }
    std::uint32_t bits_ = 0;
};

const char* output_extension(Output output, Image_format format);

// <directory>/<stem>_<output>.<extension>
std::filesystem::path output_path(const std::filesystem::path& directory, const std::string& stem, Output output,
                                  Image_format format);

}  // namespace ksi_cli
