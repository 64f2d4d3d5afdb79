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

const char* const color_order_help =
    "Colour filters of the four quartets of the sensor's top-left 4x4 super-pixel (top left, top right,\n"
    "bottom left, bottom right), for --sensor color: rggb (default), bggr, grbg or gbrg";

const Output_set mono_default_outputs = Output_set::of({Output::s0, Output::aolp, Output::dolp, Output::aolp_color});
const Output_set color_default_outputs =
    Output_set::of({Output::s0_color, Output::aolp, Output::dolp, Output::aolp_color});

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
        .add_option_function<std::string>(
            "--sensor",
            [&settings](const std::string& name) { settings.sensor = name == "color" ? Sensor::color : Sensor::mono; },
            "mono (default): 2x2 polarizer quartets; color: 4x4 super-pixels of four quartets under Bayer colour "
            "filters, whose outputs have half the frame's width and height")
        ->check(CLI::IsMember({"mono", "color"}));
    std::vector<std::string> order_names;
    for (Color_order order : every_color_order)
        order_names.emplace_back(color_order_name(order));
    command
        .add_option_function<std::string>(
            "--color-order",
            [&settings](const std::string& name) { settings.color_order = *color_order_from_name(name); },
            color_order_help)
        ->check(CLI::IsMember(order_names));
    command
        .add_option_function<int>(
            "--phase",
            [&settings](int degrees) { settings.phase = static_cast<kp::Phase>(degrees / 45); }, phase_help)
        ->required()
        ->check(CLI::IsMember({0, 45, 90, 135}));
    command
        .add_option_function<std::string>(
            "--origin",
            [&options, &settings](const std::string& text) {
                long long x = 0, y = 0;
                if (!parse_integer_pair(text, ',', x, y) || x < INT32_MIN || x > INT32_MAX || y < INT32_MIN ||
                    y > INT32_MAX)
                    throw CLI::ValidationError("--origin", "'" + text + "' is not X,Y (two integers)");
                settings.origin_x = static_cast<std::int32_t>(x);
                settings.origin_y = static_cast<std::int32_t>(y);
                options.origin_given = true;
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
            [&options](const std::vector<std::string>& names) {
                Output_set outputs;
                for (const std::string& name : names)
                    outputs.add(*output_from_name(name));
                options.settings.outputs = outputs;
                options.outputs_given = true;
            },
            "Comma-separated outputs: normalized (float32 TIFF, S1/S0 and S2/S0), s0, s1, s2, aolp (azimuth), "
            "dolp, aolp_color, dolp_color (8-bit RGB PNG pictures), imin, imax (least and greatest intensity over "
            "polarizer angles); colour sensors: s0_color (16-bit RGB), aolp_r, aolp_g, aolp_b, dolp_r, dolp_g, "
            "dolp_b instead of normalized, s0, s1, s2. Default: s0,aolp,dolp,aolp_color (colour: "
            "s0_color,aolp,dolp,aolp_color)")
        ->delimiter(',')
        ->check(CLI::IsMember(output_names()))
        ->type_name("LIST");
    settings.outputs = mono_default_outputs;
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

void settle_transform_options(Transform_options& options)
{
    Frame_settings& settings = options.settings;
    const Sensor sensor = settings.sensor;
    if (!options.outputs_given)
        settings.outputs = sensor == Sensor::color ? color_default_outputs : mono_default_outputs;
    for (Output output : every_output)
        if (settings.outputs.contains(output) && !sensor_has_output(sensor, output))
            throw CLI::ValidationError("--outputs", std::string(output_name(output)) + " is not an output of --sensor " +
                                                        sensor_name(sensor) +
                                                        (sensor == Sensor::color ? " (s0_color is its intensity)"
                                                                                 : " (it needs --sensor color)"));
    if (sensor == Sensor::color && options.origin_given && (settings.origin_x % 2 != 0 || settings.origin_y % 2 != 0))
        throw CLI::ValidationError("--origin", std::to_string(settings.origin_x) + "," +
                                                   std::to_string(settings.origin_y) +
                                                   " starts inside a polarizer quartet: with --sensor color the "
                                                   "origin's column and row must be even");
}

}  // namespace ksi_cli
