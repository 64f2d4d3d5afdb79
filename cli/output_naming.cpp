#include "output_naming.h"

namespace ksi_cli {

const char* output_name(Output output)
{
    switch (output) {
    case Output::normalized: return "normalized";
    case Output::s0: return "s0";
    case Output::s1: return "s1";
    case Output::s2: return "s2";
    case Output::aolp: return "aolp";
    case Output::dolp: return "dolp";
    case Output::aolp_color: return "aolp_color";
    case Output::dolp_color: return "dolp_color";
    case Output::imin: return "imin";
    case Output::imax: return "imax";
    case Output::s0_color: return "s0_color";
    case Output::aolp_r: return "aolp_r";
    case Output::aolp_g: return "aolp_g";
    case Output::aolp_b: return "aolp_b";
    case Output::dolp_r: return "dolp_r";
    case Output::dolp_g: return "dolp_g";
    case Output::dolp_b: return "dolp_b";
    }
    return "unknown";
}

const char* sensor_name(Sensor sensor) { return sensor == Sensor::color ? "color" : "mono"; }

bool sensor_has_output(Sensor sensor, Output output)
{
    switch (output) {
    case Output::normalized:
    case Output::s0:
    case Output::s1:
    case Output::s2: return sensor == Sensor::mono;
    case Output::s0_color:
    case Output::aolp_r:
    case Output::aolp_g:
    case Output::aolp_b:
    case Output::dolp_r:
    case Output::dolp_g:
    case Output::dolp_b: return sensor == Sensor::color;
    default: return true;
    }
}

std::optional<Output> output_from_name(const std::string& name)
{
    for (Output output : every_output)
        if (name == output_name(output))
            return output;
    return std::nullopt;
}

std::vector<std::string> output_names()
{
    std::vector<std::string> names;
    for (Output output : every_output)
        names.emplace_back(output_name(output));
    return names;
}

Output_set Output_set::of(const std::vector<Output>& outputs)
{
    Output_set set;
    for (Output output : outputs)
        set.add(output);
    return set;
}

Output_set Output_set::every_output_of(Sensor sensor)
{
    Output_set set;
    for (Output output : every_output)
        if (sensor_has_output(sensor, output))
            set.add(output);
    return set;
}

const char* output_extension(Output output, Image_format format)
{
    switch (output) {
    case Output::normalized: return "tiff";
    case Output::aolp_color:
    case Output::dolp_color: return "png";
    default: return format == Image_format::png ? "png" : "tiff";
    }
}

std::filesystem::path output_path(const std::filesystem::path& directory, const std::string& stem, Output output,
                                  Image_format format)
{
    return directory / (stem + "_" + output_name(output) + "." + output_extension(output, format));
}

}  // namespace ksi_cli
