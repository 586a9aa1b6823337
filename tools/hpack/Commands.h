#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

// Each function adds a group of commands; the file is named after the group.

void AddPackCommands(CLI::App& app);      // create, add, put
void AddListCommands(CLI::App& app);      // list, info
void AddGetCommands(CLI::App& app);       // get, extract
void AddChangeCommands(CLI::App& app);    // rm, mv
void AddCompareCommands(CLI::App& app);   // diff
void AddMapCommands(CLI::App& app);       // map
void AddIdentityCommands(CLI::App& app);  // id, state
void AddRepairCommands(CLI::App& app);    // check, recover, compact

/// What most commands take.
struct PackageOptions {
    std::string package;
    bool quiet = false;

    void AddPackage(CLI::App& command) {
        command.add_option("PKG", package, "The package file")->required()->type_name("");
    }
    void AddQuiet(CLI::App& command) {
        command.add_flag("-q,--quiet", quiet, "No progress bar, no remarks");
    }
};

/// Adds a command whose options are an `Options` and which `run` does with them.
template <class Options>
CLI::App& AddCommand(CLI::App& app, const char* name, const char* description, const char* examples,
                     void (*run)(const Options&), const std::shared_ptr<Options>& options) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer(examples);
    options->AddPackage(command);
    command.callback([run, options] { run(*options); });
    return command;
}
