#pragma once

#include "tools/common/Command.h"

namespace vantry_tools {

// Each function adds a group of commands; the file is named after the group.

void AddEditCommands(CLI::App& app);      // get, set, password, rm
void AddListCommands(CLI::App& app);      // list, dump, load
void AddTransferCommands(CLI::App& app);  // export, import
void AddWatchCommand(CLI::App& app);

}  // namespace vantry_tools
