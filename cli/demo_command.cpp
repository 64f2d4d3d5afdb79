// ksi-polarization demo: renders the synthetic scene of a monochrome or a
// colour polarization sensor, saves it as a 12-bit PNG that `process` reads
// back, and writes every output of it.
#include <cstdio>
#include <memory>

#include "color_sensor/color_demo_scene.h"
#include "demo_scene.h"
#include "frame_processing.h"
#include "image_writing.h"
#include "subcommands.h"

namespace ksi_cli {
namespace {

namespace kp = kestrion::polarization;

const char* describe(Output output)
{
    switch (output) {
    case Output::normalized: return "S1/S0 and S2/S0, two float32 samples per pixel";
    case Output::s0: return "S0, total intensity";
    case Output::s1: return "S1, positive half";
    case Output::s2: return "S2, positive half";
    case Output::aolp: return "angle of polarization, -90..+90 degrees over 0..65535";
    case Output::dolp: return "degree of linear polarization, 0..1 over 0..65535";
    case Output::aolp_color: return "picture: hue from the angle, brightness from the degree";
    case Output::dolp_color: return "picture: degree through the viridis colour map";
    case Output::imin: return "least intensity over polarizer angles: glare removed";
    case Output::imax: return "greatest intensity over polarizer angles";
    case Output::s0_color: return "S0 of the red, green and blue planes, 16-bit RGB";
    case Output::aolp_r: return "angle of polarization of the red plane";
    case Output::aolp_g: return "angle of polarization of the two green planes";
    case Output::aolp_b: return "angle of polarization of the blue plane";
    case Output::dolp_r: return "degree of linear polarization of the red plane";
    case Output::dolp_g: return "degree of linear polarization of the two green planes";
    case Output::dolp_b: return "degree of linear polarization of the blue plane";
    }
    return "";
}

struct Demo_options {
    std::filesystem::path directory = "demo_output";
    Sensor sensor = Sensor::mono;
};

// The monochrome demo's scene and outputs.
const Output_set mono_demo_outputs =
    Output_set::of({Output::normalized, Output::s0, Output::s1, Output::s2, Output::aolp, Output::dolp,
                    Output::aolp_color, Output::dolp_color});

int run_mono_demo(const std::filesystem::path& directory)
{
    Frame scene;
    render_demo_scene(scene);
    const std::string stem = "demo_scene";
    Staged_file input(directory / (stem + ".png"));
    write_gray16(input, Image_format::png, scene.pixels.data(), scene.width, scene.height, demo_scene_bit_depth);
    input.commit();

    kp::Module module;
    kp::Processor processor;
    Frame_settings settings;
    settings.phase = kp::Phase::degrees_0;
    settings.outputs = mono_demo_outputs;
    settings.directory = directory;
    Frame_processor frame_processor(processor, settings);
    Stage_times times;
    const std::vector<std::filesystem::path> written = frame_processor.process(scene, stem, times);

    std::printf("Rendered a %dx%d %d-bit mosaic of polarizers at phase 0 and computed all outputs "
                "(transform: %.1f ms of processor time):\n",
                scene.width, scene.height, demo_scene_bit_depth, times.transform * 1e3);
    std::printf("  %-45s the raw mosaic; `ksi-polarization process --phase 0` reads it\n", input.final_path().c_str());
    std::size_t line = 0;
    for (Output output : every_output)
        if (mono_demo_outputs.contains(output))
            std::printf("  %-45s %s\n", written[line++].c_str(), describe(output));
    return exit_success;
}

int run_color_demo(const std::filesystem::path& directory)
{
    Frame scene;
    render_color_demo_scene(scene);
    const std::string stem = "demo_color_scene";
    Staged_file input(directory / (stem + ".png"));
    write_gray16(input, Image_format::png, scene.pixels.data(), scene.width, scene.height,
                 color_demo_scene_bit_depth);
    input.commit();

    kp::Module module;
    kp::Processor processor;
    Frame_settings settings;
    settings.sensor = Sensor::color;
    settings.color_order = color_demo_scene_order;
    settings.phase = kp::Phase::degrees_0;
    settings.outputs = Output_set::every_output_of(Sensor::color);
    settings.directory = directory;
    Frame_processor frame_processor(processor, settings);
    Stage_times times;
    const std::vector<std::filesystem::path> written = frame_processor.process(scene, stem, times);

    std::printf("Rendered a %dx%d %d-bit mosaic of a colour polarization sensor (phase 0, colour order %s) and "
                "computed all its %dx%d outputs (transform: %.1f ms of processor time):\n",
                scene.width, scene.height, color_demo_scene_bit_depth, color_order_name(color_demo_scene_order),
                frame_processor.output_width(), frame_processor.output_height(), times.transform * 1e3);
    std::printf("  %-45s the raw mosaic; `ksi-polarization process --sensor color --phase 0` reads it\n",
                input.final_path().c_str());
    std::size_t line = 0;
    for (Output output : every_output)
        if (settings.outputs.contains(output))
            std::printf("  %-45s %s\n", written[line++].c_str(), describe(output));
    return exit_success;
}

int run_demo(const Demo_options& options)
{
    std::error_code error;
    std::filesystem::create_directories(options.directory, error);
    if (error) {
        std::fprintf(stderr, "ksi-polarization: cannot create %s: %s\n", options.directory.c_str(),
                     error.message().c_str());
        return exit_failure;
    }
    return options.sensor == Sensor::color ? run_color_demo(options.directory) : run_mono_demo(options.directory);
}

}  // namespace

void add_demo_subcommand(CLI::App& application, Subcommand_action& action)
{
    auto options = std::make_shared<Demo_options>();
    CLI::App* command = application.add_subcommand(
        "demo", "Render a synthetic polarization scene and write all its outputs and pictures");
    command->add_option("-o,--output-directory", options->directory, "Where the files go (default: demo_output)")
        ->type_name("DIR");
    command
        ->add_option_function<std::string>(
            "--sensor",
            [options](const std::string& name) { options->sensor = name == "color" ? Sensor::color : Sensor::mono; },
            "mono (default) or color: a colour scene through a colour polarization mosaic")
        ->check(CLI::IsMember({"mono", "color"}));
    command->callback([options, &action] { action = [options] { return run_demo(*options); }; });
}

}  // namespace ksi_cli
