#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace vantry_tools {

// How the command-line tools fail: whatever is thrown below RunTool() becomes one line on standard
// error, "hpk: a.hpk: No such file or directory", and an exit status.

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

/// The command line makes no sense. Exit status 2.
class UsageFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Parts of the work failed, and PrintError() has said which: an exit status and no further line.
struct ReportedFailure {
    int status = exitFailed;
};

/// The user stopped the work. The tool ends by the same signal, so that a shell's loop around it
/// ends, too.
struct Interrupted {
    int signal;
};

/// One line on standard error behind the tool's name; what is not printable comes out escaped.
void PrintError(std::string_view text);

/// The exception being handled, in one line.
std::string DescribeException();

/// "WHAT PATH: reason", the reason being the system's text for `error`.
ToolFailure SystemFailure(std::string_view what, std::string_view path, int error);

}  // namespace vantry_tools
