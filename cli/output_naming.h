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

enum class Output : std::uint8_t { normalized, s0, s1, s2, aolp, dolp, aolp_color, dolp_color };

inline constexpr std::array<Output, 8> every_output{Output::normalized, Output::s0,   Output::s1,
                                                    Output::s2,         Output::aolp, Output::dolp,
                                                    Output::aolp_color, Output::dolp_color};

// The container of the 16-bit images; the float pair is always TIFF and the
// pictures always PNG.
enum class Image_format { png, tiff };

const char* output_name(Output output);
std::optional<Output> output_from_name(const std::string& name);
std::vector<std::string> output_names();

// A set of outputs, small enough to copy into every worker.
class Output_set {
public:
    Output_set() = default;
    static Output_set of(const std::vector<Output>& outputs);
    static Output_set everything();
    void add(Output output) { bits_ |= bit(output); }
    bool contains(Output output) const { return (bits_ & bit(output)) != 0; }
    bool empty() const { return bits_ == 0; }

private:
    static std::uint16_t bit(Output output) { return static_cast<std::uint16_t>(1u << static_cast<unsigned>(output)); }
    std::uint16_t bits_ = 0;
};

const char* output_extension(Output output, Image_format format);

// <directory>/<stem>_<output>.<extension>
std::filesystem::path output_path(const std::filesystem::path& directory, const std::string& stem, Output output,
                                  Image_format format);

}  // namespace ksi_cli
