#pragma once

#include <CLI/CLI.hpp>
#include <memory>

// Each function adds a group of commands; the file is named after the group.

void AddEditCommands(CLI::App& app);      // get, set, password, rm
void AddListCommands(CLI::App& app);      // list, dump, load
void AddTransferCommands(CLI::App& app);  // export, import

/// Adds a command whose options are an `Options` and which `run` does with them.
template <class Options>
CLI::App& AddCommand(CLI::App& app, const char* name, const char* description, const char* footer,
                     void (*run)(const Options&), const std::shared_ptr<Options>& options) {
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer(footer);
    command.callback([run, options] { run(*options); });
    return command;
}
