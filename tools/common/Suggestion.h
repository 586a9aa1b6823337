#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// What somebody may have meant who gave `word`, which the command line of `app` does not know: a
/// command or an option of it that is spelled almost so, or what does under another name what the
/// word does elsewhere. Empty when nothing comes near.
std::string SuggestWord(const CLI::App& app, const std::string& word);
