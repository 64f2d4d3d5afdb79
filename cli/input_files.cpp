#include "input_files.h"

#include <algorithm>

#include "transform_options.h"

namespace ksi_cli {

void add_input_options(CLI::App& command, Input_options& options, bool required)
{
    CLI::Option* size = command.add_option("--raw", options.raw_size, "Inputs are headerless raw dumps of this size")
                            ->type_name("WIDTHxHEIGHT");
    command.add_option("--raw-format", options.raw_format, "Samples of the raw dumps: u8, u16le (default), u16be")
        ->check(CLI::IsMember({"u8", "u16le", "u16be"}))
        ->needs(size);
    CLI::Option* inputs =
        command.add_option("INPUT", options.inputs, "Image files, raw dumps, or directories of them");
    if (required)
        inputs->required();
}

void finish_input_options(Input_options& options)
{
    options.raw.reset();
    if (options.raw_size.empty())
        return;
    long long width = 0, height = 0;
    if (!parse_integer_pair(options.raw_size, 'x', width, height) || width < 0 || height < 0 ||
        width > INT32_MAX || height > INT32_MAX)
        throw CLI::ValidationError("--raw", "'" + options.raw_size + "' is not WIDTHxHEIGHT");
    const Raw_sample_format format = options.raw_format == "u8"      ? Raw_sample_format::u8
                                     : options.raw_format == "u16be" ? Raw_sample_format::u16be
                                                                     : Raw_sample_format::u16le;
    options.raw = Raw_layout{static_cast<std::int32_t>(width), static_cast<std::int32_t>(height), format};
}

std::vector<std::filesystem::path> expand_inputs(const Input_options& options, std::vector<std::string>& problems)
{
    std::vector<std::filesystem::path> files;
    for (const std::string& input : options.inputs) {
        std::error_code error;
        if (!std::filesystem::is_directory(input, error)) {
            files.emplace_back(input);
            continue;
        }
        std::vector<std::filesystem::path> found;
        for (std::filesystem::directory_iterator entry(input, error), end; !error && entry != end;
             entry.increment(error))
            if (entry->is_regular_file(error) && is_input_file_name(entry->path(), options.raw.has_value()))
                found.push_back(entry->path());
        if (error)
            problems.push_back(input + ": unreadable directory (" + error.message() + ")");
        else if (found.empty())
            problems.push_back(input + ": " +
                               (options.raw ? "directory without *.raw files"
                                            : "directory without image files (*.png, *.tif, *.tiff, *.pgm)"));
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

}  // namespace ksi_cli
