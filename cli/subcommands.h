// The subcommands of ksi-polarization. Each adds itself to the application;
// when it is the one chosen on the command line, its parse callback stores
// in `action` what it will do, and main runs that and exits with its result.
// A further subcommand is one more file with one more add_..._subcommand,
// listed in main.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace ksi_cli {

// Exit statuses of the tool.
enum Exit_status { exit_success = 0, exit_failure = 1, exit_usage = 2 };

using Subcommand_action = std::function<int()>;

void add_process_subcommand(CLI::App& application, Subcommand_action& action);
void add_demo_subcommand(CLI::App& application, Subcommand_action& action);
void add_info_subcommand(CLI::App& application, Subcommand_action& action);

}  // namespace ksi_cli
