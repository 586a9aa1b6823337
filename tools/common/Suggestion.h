#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vantry_tools {

/// What somebody may have meant who gave `word`, which neither `app` nor `command` knows, if one
/// was given before it: a command or an option that is spelled almost so, or what does under
/// another name what the word does elsewhere. Empty when nothing comes near.
std::string SuggestWord(const CLI::App& app, const CLI::App* command, const std::string& word);

}  // namespace vantry_tools
