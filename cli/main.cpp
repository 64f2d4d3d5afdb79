// ksi-polarization: polarization images from the raw frames of polarization
// cameras, through libkestrion_ksi_polarization_processor.
#include <cstdio>
#include <exception>

#include "subcommands.h"

int main(int argc, char** argv)
{
    using namespace ksi_cli;
    CLI::App application("Polarization images and false-colour pictures from raw polarization-camera mosaics",
                         "ksi-polarization");
    application.set_version_flag("--version", KSI_VERSION);
    application.require_subcommand(1);
    Subcommand_action action;
    for (auto add_subcommand : {add_process_subcommand, add_demo_subcommand, add_info_subcommand})
        add_subcommand(application, action);
    try {
        application.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int status = application.exit(error);
        return status == 0 ? exit_success : exit_usage;
    }
    try {
        return action();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ksi-polarization: %s\n", error.what());
        return exit_failure;
    }
}
