#pragma once

#include <CLI/CLI.hpp>
#include <memory>

namespace vantry_tools {

/// A command of a tool, and the options that it fills in.
template <class Options>
struct Command {
    CLI::App& app;
    Options& options;
};

/// Adds a command, which `run` executes with its options:
///
///     const auto [getCommand, get] = AddCommand(app, "get", "Show a value", "Example: ...", &Get);
///     AddPositional(getCommand, "KEY", get.key, "The full key");
template <class Options>
Command<Options> AddCommand(CLI::App& app, const char* name, const char* description,
                            const char* footer, void (*run)(const Options&)) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer(footer);
    command.callback([run, options] { run(*options); });
    return {command, *options};
}

/// Adds a required word.
template <class Value>
void AddPositional(CLI::App& command, const char* name, Value& value, const char* description) {
    command.add_option(name, value, description)->required()->type_name("");
}

}  // namespace vantry_tools
