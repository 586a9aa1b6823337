#pragma once

#include <CLI/CLI.hpp>

#include "tools/common/Completion.h"
#include "tools/common/Failures.h"

namespace vantry_tools {

// How the command-line tools start and end.
//
//     int main(int argc, char** argv) {
//         CLI::App app("Works with packages");
//         ...                                       // options; commands with callbacks
//         return RunTool(app, argc, argv, keys);
//     }

/// Adds the option --version to `app`, parses the command line, runs the callbacks and turns what
/// they throw into a line and an exit status. Failing to write the output is a failure too.
/// @param keys for the completion of keys in shells
int RunTool(CLI::App& app, int argc, char** argv, const KeyLister& keys);

}  // namespace vantry_tools
