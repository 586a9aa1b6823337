#pragma once

#include <string>

#include "tools/common/Command.h"

namespace vantry_tools {

// Each function adds a group of commands. Its file is named after the group.

void AddPackCommands(CLI::App& app);      // create, add, put
void AddListCommands(CLI::App& app);      // list
void AddInfoCommands(CLI::App& app);      // info
void AddGetCommands(CLI::App& app);       // get, extract
void AddChangeCommands(CLI::App& app);    // rm, mv
void AddCompareCommands(CLI::App& app);   // diff
void AddImportCommands(CLI::App& app);    // import
void AddExportCommands(CLI::App& app);    // export
void AddSumCommands(CLI::App& app);       // sum
void AddSignCommands(CLI::App& app);      // keygen, sign, verify
void AddSyncCommands(CLI::App& app);      // sync, copy
void AddMapCommands(CLI::App& app);       // map
void AddIdentityCommands(CLI::App& app);  // id, state
void AddRepairCommands(CLI::App& app);    // check, recover, compact

/// Adds the path of a package that is read or written.
inline CLI::Option* AddPackageArgument(CLI::App& command, const char* name, std::string& path,
                                       const char* description) {
    const CLI::Validator notDash(
        [](const std::string& word) {
            return word == "-" ? "a package needs a file: it cannot be a pipe (./- for a file "
                                 "that is named -)"
                               : std::string();
        },
        "");
    return command.add_option(name, path, description)->check(notDash)->type_name("");
}

/// Options of most commands.
struct PackageOptions {
    std::string package;
    bool quiet = false;

    void AddPackage(CLI::App& command) {
        AddPackageArgument(command, "PKG", package, "The package file")->required();
    }
    void AddQuiet(CLI::App& command) {
        command.add_flag("-q,--quiet", quiet, "No progress bar, no notes");
    }
};

/// Makes -h mean what it means for ls; only --help shows the help then.
inline void AddHuman(CLI::App& command, bool& human) {
    command.set_help_flag("--help", "Print this help message and exit");
    command.add_flag("-h,--human", human, "Sizes with a unit: 512, 1.5K, 12M");
}

/// Adds a command on a package.
template <class Options>
Command<Options> AddPackageCommand(CLI::App& app, const char* name, const char* description,
                                   const char* footer, void (*run)(const Options&)) {
    const Command<Options> command = AddCommand(app, name, description, footer, run);
    command.options.AddPackage(command.app);
    return command;
}

}  // namespace vantry_tools
