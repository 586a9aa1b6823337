#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace vantry_tools {

/// Returns the keys that may come next, as the tool shows them. Gets the words of the command line
/// that are not options. If it throws there are none.
using KeyLister = std::function<std::vector<std::string>(const std::vector<std::string>& words)>;

/// Prints what the last of `words` may become, for the completion scripts of shells: a line each,
/// "=TEXT<tab>DESCRIPTION" for a command, an option, a value or a key; ":file", ":folder" or
/// ":package" where the shell has to offer those.
void PrintCompletions(const CLI::App& app, const std::vector<std::string>& words,
                      const KeyLister& keys);

}  // namespace vantry_tools
