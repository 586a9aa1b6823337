#include "basekit/Trace.h"

#include <gtest/gtest.h>

#include "tests/support/Bytes.h"
#include "tests/support/TempFolder.h"

namespace {

// Initialized before any other file's initializers run.
constexpr Trace_file constant(TraceSubsystem::registry, "path");
static_assert(constant.Subsystem() == TraceSubsystem::registry && constant.Path()[0] == 'p');

TEST(Trace, GoesWholeToTheFileThatTheEnvironmentNames) {
    const TempFolder folder;
    const qtString log = folder / "log";
    static Trace_file source(TraceSubsystem::registry, "folder/source.cpp");
    const auto trace = [&](const qtString& target, const char* text) {
        setenv("BASEKIT_TRACE", target.c_str(), 1);
        tracef(0, 1, 12, source, 0, "%s", text);
    };
    const std::string text(2000, 't');
    trace(log, "first");
    trace("", "dropped");
    trace(folder / "none/log", "dropped");
    trace(log, text.c_str());
    unsetenv("BASEKIT_TRACE");
    const std::string start = "folder/source.cpp:12: [9] ";
    EXPECT_EQ(FileBytes(log), start + "first\n" + start + text + "\n");
}

}  // namespace
