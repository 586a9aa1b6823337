#pragma once

#include <CLI/CLI.hpp>

namespace vantry_tools {

/// Gives `app` the option --time-limit and guards its commands: a database that leads Berkeley DB
/// into an endless loop, or into a fault, ends the tool with one line on standard error and exit
/// status 1. What was stored stays as it is: changes are made to copies.
void AddWatchdog(CLI::App& app);

/// The same guard from now on, for what is no command.
/// @param seconds processor time until a loop counts as endless; 0: any
void GuardAgainstDamage(unsigned seconds);

}  // namespace vantry_tools
