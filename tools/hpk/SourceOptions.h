#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "tools/hpk/Sources.h"

namespace vantry_tools {

/// The words and options of a command that name the files to pack.
class SourceOptions {
public:
    void AddTo(CLI::App& command);

    const SourceRules& Rules() const { return rules; }
    /// The paths that were given, and those in the list of --files-from, which this reads.
    /// @throws ToolFailure if the list cannot be read, UsageFailure if nothing was given though
    ///         `isRequired`
    std::vector<std::string> Paths(bool isRequired) const;

private:
    std::vector<std::string> paths;
    SourceRules rules;
    std::string list;
    bool hasNul = false;
};

}  // namespace vantry_tools
