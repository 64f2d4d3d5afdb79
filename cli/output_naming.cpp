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
    }
    return "unknown";
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

Output_set Output_set::everything() { return of({every_output.begin(), every_output.end()}); }

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
