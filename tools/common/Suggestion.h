#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace vantry_tools {

/// Suggests what the user may have meant by an unknown word: a command or an option of similar
/// spelling, or the one that does what the word does in other tools.
/// @param command the command that was given before the word, or nullptr
/// @return empty if nothing comes close
std::string SuggestWord(const CLI::App& app, const CLI::App* command, const std::string& word);

}  // namespace vantry_tools
