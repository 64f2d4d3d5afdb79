// ksi-polarization demo: renders the synthetic scene, saves it as a 12-bit
// PNG that `process` reads back, and writes every output of it.
#include <chrono>
#include <cstdio>
#include <memory>

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
    }
    return "";
}

int run_demo(const std::filesystem::path& directory)
{
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        std::fprintf(stderr, "ksi-polarization: cannot create %s: %s\n", directory.c_str(), error.message().c_str());
        return exit_failure;
    }
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
    settings.outputs = Output_set::everything();
    settings.directory = directory;
    Frame_processor frame_processor(processor, settings);
    Stage_times times;
    const std::vector<std::filesystem::path> written = frame_processor.process(scene, stem, times);

    std::printf("Rendered a %dx%d %d-bit mosaic of polarizers at phase 0 and computed all outputs "
                "(transform %.1f ms):\n",
                scene.width, scene.height, demo_scene_bit_depth, times.transform * 1e3);
    std::printf("  %-45s the raw mosaic; `ksi-polarization process --phase 0` reads it\n", input.final_path().c_str());
    std::size_t line = 0;
    for (Output output : every_output)
        std::printf("  %-45s %s\n", written[line++].c_str(), describe(output));
    return exit_success;
}

}  // namespace

void add_demo_subcommand(CLI::App& application, Subcommand_action& action)
{
    auto directory = std::make_shared<std::filesystem::path>("demo_output");
    CLI::App* command = application.add_subcommand(
        "demo", "Render a synthetic polarization scene and write all its outputs and pictures");
    command->add_option("-o,--output-directory", *directory, "Where the files go (default: demo_output)")
        ->type_name("DIR");
    command->callback([directory, &action] { action = [directory] { return run_demo(*directory); }; });
}

}  // namespace ksi_cli
