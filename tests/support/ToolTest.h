#pragma once

#include <sys/wait.h>

#include <cstdlib>

#include "tests/support/TemporaryRegistry.h"

/// Tests of a tool in a folder of their own. TOOL is its name and COMMAND what starts it.
class ToolTest : public TemporaryRegistry {
protected:
    ToolTest() { std::filesystem::current_path(folder); }
    ~ToolTest() override { std::filesystem::current_path("/"); }

    /// Runs a shell command in which the tool has its name, and compares all that comes of it;
    /// `error` is without the tool's name and the end of the line.
    static void Run(const std::string& command, int status, const std::string& out,
                    const std::string& error) {
        const std::string line =
            TOOL "() { " COMMAND " \"$@\"; }; { " + command + "; } >stdout 2>stderr";
        const int result = std::system(line.c_str());
        EXPECT_TRUE(WIFEXITED(result)) << command;
        EXPECT_EQ(WEXITSTATUS(result), status) << command;
        EXPECT_EQ(std::string(FileBytes("stdout")), out) << command;
        EXPECT_EQ(std::string(FileBytes("stderr")), error.empty() ? "" : TOOL ": " + error + "\n")
            << command;
    }
    static void Done(const std::string& command, const std::string& out = "") {
        Run(command, 0, out, "");
    }
    static void Fails(const std::string& command, const std::string& error, int status = 1) {
        Run(command, status, "", error);
    }
};
