#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace vantry_tools {

// How the command-line tools fail: RunTool() turns every exception into one line on standard error,
// "hpk: cannot open a.hpk: No such file or directory", and an exit status.

enum ExitStatus : int {
    exitDone = 0,
    exitFailed = 1,
    exitUsage = 2,
};

/// The operation failed: one line, with the file and the reason. Exit status 1.
class ToolFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A usage error. Exit status 2.
class UsageFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Parts of the work failed, and PrintError() has reported them: an exit status without a line.
struct ReportedFailure {
    int status = exitFailed;
};

/// The user stopped the work. The tool ends by the same signal, so that a shell loop around it ends
/// too.
struct Interrupted {
    int signal;
};

/// Prints one line on standard error, after the tool's name; what is not printable is escaped.
void PrintError(std::string_view text);

/// Describes the exception being handled in one line.
std::string DescribeException();

}  // namespace vantry_tools
