#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "basekit/UnixRegistry.h"

namespace vantry_tools {

using Records = std::map<std::string, std::string>;

/// Opens a registry that must exist. @throws ToolFailure that names the file and the cause
void OpenExisting(UnixRegistry& store, bool readWrite = false);

/// The records whose keys begin with `prefix`. @throws ToolFailure, also for a damaged database
Records ReadRecords(UnixRegistry& store, std::string_view prefix = "");

/// The reason of the last failure, as far as it is known; the database's path at least.
std::string FailureCause();

/// A value in one line, quoted if necessary; never a password.
std::string ShowValue(std::string_view key, std::string_view value);

/// Prints for each record of `wanted` whether storing it would add, change or keep one.
void PrintChanges(const Records& wanted);

/// Prints bytes on standard output. A terminal receives printable characters, line feeds and tabs
/// as they are, everything else escaped.
void PrintSafely(std::string_view bytes);

/// Runs `print`, which writes on standard output, and directs what it writes to `file`, which then
/// appears or changes in one step; "-" and the empty name are standard output itself.
/// @param mode of a file that does not exist; the umask narrows it
/// @throws ToolFailure when not all of it could be written
void PrintTo(const std::string& file, const std::function<void()>& print, unsigned mode = 0666);

/// The content of a file; "-" is standard input. @throws ToolFailure
std::string ReadAll(const std::string& file);

/// The words of a command line that select records: keys; patterns, unless they are keys; prefixes,
/// which end in a slash or come by --prefix.
class RecordChoice {
public:
    /// Adds the words and the option to a command.
    void AddTo(CLI::App& command, const char* description);
    bool Empty() const { return words.empty() && prefixes.empty(); }
    /// The selected records; all if there is no word.
    Records Choose(const Records& all) const;
    /// Prints an error for each word that selects nothing. @return whether there was none
    bool AllSelect(const Records& all, const char* message) const;

private:
    struct Word {
        std::string shown;
        std::string key;
        bool isPrefix = false;
        bool isPattern = false;

        bool Selects(const std::string& candidate) const;
    };

    std::vector<Word> Words(const Records& all) const;

    std::vector<std::string> words;
    std::vector<std::string> prefixes;
};

}  // namespace vantry_tools
