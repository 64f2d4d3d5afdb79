#include "source_options.hpp"

#include <cstdio>

#include "camera_source.hpp"
#include "replay_source.hpp"

namespace ksi_cli {

namespace {

Region parse_region(const std::string& text)
{
    int x = 0, y = 0, width = 0, height = 0;
    char end = 0;
    if (std::sscanf(text.c_str(), "%d,%d,%d,%d%c", &x, &y, &width, &height, &end) != 4 || x < 0 || y < 0 ||
        width < 2 || height < 2)
        throw CLI::ValidationError("--region", "'" + text +
                                                   "' is not X,Y,WIDTH,HEIGHT (offsets 0 or more, sizes 2 or more)");
    return {x, y, width, height};
}

Opened_source open_camera(const Source_options& options)
{
    if (options.simulated)
        include_simulated_cameras();
    Opened_source opened;
    opened.camera = std::make_unique<Camera>(options.camera);
    Camera& camera = *opened.camera;
    if (options.region)
        camera.set_region(*options.region);
    if (options.frame_rate)
        camera.set_frame_rate(*options.frame_rate);
    const Pixel_format format = camera.select_pixel_format(options.pixel_format);
    opened.source = std::make_unique<Camera_source>(camera, format);
    return opened;
}

// Every file is read before the stream starts; the first one's bit depth
// chooses the pixel format unless one is asked for.
Opened_source open_replay(const Source_options& options)
{
    std::vector<std::string> problems;
    const std::vector<std::filesystem::path> files = expand_inputs(options.replay, problems);
    if (!problems.empty())
        throw Source_error(problems.front());
    Frame frame;
    const auto read = [&](const std::filesystem::path& file) {
        try {
            read_frame(file, options.replay.raw, frame);
        } catch (const Input_error& error) {
            throw Source_error(file.string() + ": " + error.what());
        }
    };
    read(files.front());
    Pixel_format format = unpacked_format_for_depth(frame.bit_depth);
    if (options.pixel_format) {
        const std::optional<Pixel_format> requested = pixel_format_by_name(*options.pixel_format);
        if (!requested)
            throw Source_error("pixel format '" + *options.pixel_format + "' is not one this tool unpacks (" +
                               unpacked_format_names() + ")");
        format = *requested;
    }
    const std::string name =
        files.size() == 1 ? "replay of " + files.front().string() : "replay of " + std::to_string(files.size()) + " files";
    auto replay = std::make_unique<Replay_source>(format, options.rate, name);
    for (std::size_t index = 0; index < files.size(); ++index) {
        if (index > 0)
            read(files[index]);
        try {
            replay->add(frame);
        } catch (const Source_error& error) {
            throw Source_error(files[index].string() + ": " + error.what());
        }
    }
    Opened_source opened;
    opened.source = std::move(replay);
    return opened;
}

}  // namespace

void add_source_options(CLI::App& command, Source_options& options)
{
    command.add_option("--camera", options.camera,
                       "Camera id, as `ksi-polarization cameras` lists it, or an address of a GigE Vision camera");
    command.add_flag("--simulated", options.simulated, "Also look for Aravis's simulated camera Fake_1");
    command.add_option_function<std::string>(
        "--pixel-format", [&options](const std::string& name) { options.pixel_format = name; },
        "Ask the camera for this format: Mono8, Mono10, Mono12, Mono16, Mono12Packed or Mono12p (default: the one "
        "it delivers, if monochrome); for a replay, the packing its frames travel in (default: the smallest "
        "unpacked format that holds the first file's bit depth)");
    command
        .add_option_function<std::string>(
            "--region", [&options](const std::string& text) { options.region = parse_region(text); },
            "Set the camera's region of interest")
        ->type_name("X,Y,WIDTH,HEIGHT");
    command
        .add_option_function<double>(
            "--frame-rate", [&options](double rate) { options.frame_rate = rate; },
            "Set the camera's acquisition frame rate")
        ->check(CLI::PositiveNumber);
    command.add_option("--rate", options.rate, "Frames per second of a replay of files (default 30)")
        ->check(CLI::PositiveNumber);
    add_input_options(command, options.replay, false);
    command.get_option("INPUT")->description(
        "Instead of a camera: image files, raw dumps, or directories of them, replayed in a loop");
}

void finish_source_options(const CLI::App& command, Source_options& options)
{
    finish_input_options(options.replay);
    const bool camera = !options.camera.empty();
    const bool replay = !options.replay.inputs.empty();
    if (camera == replay)
        throw CLI::ValidationError(camera ? "--camera and INPUT" : "--camera or INPUT",
                                   camera ? "a camera or files to replay, not both"
                                          : "a camera (--camera ID) or files to replay (INPUT...) is required");
    const auto given = [&command](const char* name) { return command.get_option(name)->count() > 0; };
    for (const char* name : {"--simulated", "--region", "--frame-rate"})
        if (replay && given(name))
            throw CLI::ValidationError(name, "applies to a camera, not to a replay of files");
    for (const char* name : {"--rate", "--raw"})
        if (camera && given(name))
            throw CLI::ValidationError(name, "applies to a replay of files, not to a camera");
}

Opened_source open_source(const Source_options& options)
{
    return options.camera.empty() ? open_replay(options) : open_camera(options);
}

}  // namespace ksi_cli
