#pragma once

#include <CLI/CLI.hpp>

namespace vantry_tools {

/// Adds the option --time-limit to `app` and guards its commands: a database that leads Berkeley DB
/// into an endless loop, or into a fault, ends the tool with one line on standard error and exit
/// status 1. The database stays as it is: changes are made to copies.
void AddWatchdog(CLI::App& app);

/// The same guard from now on, for code that is not in a command.
/// @param seconds processor time after which a loop counts as endless; 0: any
void StartWatchdog(unsigned seconds);

/// Starts the time anew, for commands without an end.
void RestartWatchdog();

}  // namespace vantry_tools
