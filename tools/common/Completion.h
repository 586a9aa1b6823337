#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace vantry_tools {

/// The keys that may come next, as the tool shows them, by the words of a command line that are no
/// options: what stands before the keys. May throw: there are none then.
using KeyLister = std::function<std::vector<std::string>(const std::vector<std::string>& words)>;

/// Prints what may stand in place of the last of `words`, for the shells' completion scripts: a
/// line each, "=TEXT<tab>DESCRIPTION" for a command, an option, a value or a key; ":file" and
/// ":folder" where the shell is to complete those.
void PrintCompletions(const CLI::App& app, const std::vector<std::string>& words,
                      const KeyLister& keys);

}  // namespace vantry_tools
