// ksi-polarization cameras: the GenICam cameras Aravis finds, one a line.
#include <arv.h>

#include <cstdio>
#include <memory>

#include "camera.hpp"
#include "subcommands.h"

namespace ksi_cli {

void add_cameras_subcommand(CLI::App& application, Subcommand_action& action)
{
    auto simulated = std::make_shared<bool>(false);
    CLI::App* command = application.add_subcommand(
        "cameras", "List the GenICam cameras (GigE Vision, USB3 Vision) that Aravis finds: id, model, serial, "
                   "interface");
    command->add_flag("--simulated", *simulated, "Include Aravis's simulated camera Fake_1");
    command->callback([simulated, &action] {
        action = [simulated] {
            if (*simulated)
                include_simulated_cameras();
            const std::vector<Camera_description> cameras = list_cameras();
            for (const Camera_description& camera : cameras)
                std::printf("%s\tmodel %s\tserial %s\tinterface %s\n", camera.id.c_str(), camera.model.c_str(),
                            camera.serial.c_str(), camera.interface_name.c_str());
            if (cameras.empty())
                std::fprintf(stderr, "ksi-polarization: no camera found\n");
            arv_shutdown();
            return exit_success;
        };
    });
}

}  // namespace ksi_cli
