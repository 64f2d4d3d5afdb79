#include "transform_options.h"

#include <cstdlib>

#include "calibration_file.h"

namespace ksi_cli {

namespace kp = kestrion::polarization;

namespace {

const char* const phase_help =
    "Polarizer angle over the sensor's top-left pixel, in degrees. The 2x2 quartet of each phase\n"
    "(top left, top right / bottom left, bottom right):\n"
    "    0:    0 135 /  45  90\n"
    "   45:   45  90 /   0 135\n"
    "   90:   90  45 / 135   0\n"
    "  135:  135   0 /  90  45";

}  // namespace

bool parse_integer_pair(const std::string& text, char separator, long long& first, long long& second)
{
    const auto split = text.find(separator);
    if (split == std::string::npos || split == 0 || split + 1 == text.size())
        return false;
    char* end = nullptr;
    const std::string left = text.substr(0, split), right = text.substr(split + 1);
    first = std::strtoll(left.c_str(), &end, 10);
    if (*end != '\0')
        return false;
    second = std::strtoll(right.c_str(), &end, 10);
    return *end == '\0';
}

void add_transform_options(CLI::App& command, Transform_options& options)
{
    Frame_settings& settings = options.settings;
    command
        .add_option_function<int>(
            "--phase",
            [&settings](int degrees) { settings.phase = static_cast<kp::Phase>(degrees / 45); }, phase_help)
        ->required()
        ->check(CLI::IsMember({0, 45, 90, 135}));
    command
        .add_option_function<std::string>(
            "--origin",
            [&settings](const std::string& text) {
                long long x = 0, y = 0;
                if (!parse_integer_pair(text, ',', x, y) || x < INT32_MIN || x > INT32_MAX || y < INT32_MIN ||
                    y > INT32_MAX)
                    throw CLI::ValidationError("--origin", "'" + text + "' is not X,Y (two integers)");
                settings.origin_x = static_cast<std::int32_t>(x);
                settings.origin_y = static_cast<std::int32_t>(y);
            },
            "Sensor column and row of the image's first pixel, for crops (default 0,0)")
        ->type_name("X,Y");
    command.add_option("--bit-depth", settings.bit_depth, "Significant bits of an input sample (default: the file's)")
        ->check(CLI::Range(0, 16));
    command
        .add_option_function<int>(
            "--output-maximum",
            [&settings](int maximum) { settings.output_maximum = static_cast<std::uint16_t>(maximum); },
            "Largest value of the 16-bit outputs (default 65535)")
        ->check(CLI::Range(1, 65535));
    command
        .add_option_function<std::string>(
            "--calibration",
            [&options](const std::string& file) {
                try {
                    options.calibration = read_calibration_file(file);
                } catch (const Calibration_file_error& error) {
                    throw CLI::ValidationError("--calibration", error.what());
                }
            },
            "JSON file with four 4x4 matrices: matrix_0, matrix_45, matrix_90, matrix_135 (16 numbers each)")
        ->type_name("FILE");
    command
        .add_option_function<std::vector<std::string>>(
            "--outputs",
            [&settings](const std::vector<std::string>& names) {
                Output_set outputs;
                for (const std::string& name : names)
                    outputs.add(*output_from_name(name));
                settings.outputs = outputs;
            },
            "Comma-separated outputs: normalized (float32 TIFF, S1/S0 and S2/S0), s0, s1, s2, aolp (azimuth), "
            "dolp, aolp_color, dolp_color (8-bit RGB PNG pictures). Default: s0,aolp,dolp,aolp_color")
        ->delimiter(',')
        ->check(CLI::IsMember(output_names()))
        ->type_name("LIST");
    settings.outputs = Output_set::of({Output::s0, Output::aolp, Output::dolp, Output::aolp_color});
    command.add_option("-o,--output-directory", settings.directory, "Directory of the output files (default: .)")
        ->type_name("DIR");
    command
        .add_option_function<std::string>(
            "--format",
            [&settings](const std::string& format) {
                settings.format = format == "tiff" ? Image_format::tiff : Image_format::png;
            },
            "Container of the 16-bit outputs: png (default) or tiff")
        ->check(CLI::IsMember({"png", "tiff"}));
}

}  // namespace ksi_cli
