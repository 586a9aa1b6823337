#pragma once

/// @file
/// Trace lines of programs and libraries, and their destination.
///
///     static Trace_file thisFile(TraceSubsystem::registry, __FILE__);
///     tracef(0, 1, __LINE__, thisFile, 0, "cannot open %s", path);

#include "basekit/Export.h"

namespace TraceSubsystem {
/// The parts of a program that write trace lines.
enum Subsystems : int {
    registry = 9,
};
}  // namespace TraceSubsystem

/// Names a source file that traces. Each such file owns one object, at file scope. It is
/// initialized at compile time and never destroyed, so tracing works from the first initializer of
/// a static object to the last destructor.
class VANTRY_EXPORT Trace_file {
public:
    /// @param number the part of the program that the file belongs to
    /// @param file its path; not copied
    constexpr Trace_file(TraceSubsystem::Subsystems number, const char* file)
        : subsystem(number), path(file) {}

    /// The part of the program that the file belongs to.
    constexpr TraceSubsystem::Subsystems Subsystem() const { return subsystem; }
    /// The path given at construction, not owned.
    constexpr const char* Path() const { return path; }

private:
    TraceSubsystem::Subsystems subsystem;
    const char* path;
};

/// Receives a trace line: its source and its formatted text, without a line end.
using TraceSink = void (*)(const Trace_file& file, int line, const char* text);

/// Sets the receiver of trace lines. Thread-safe.
/// @param sink null for the default, which drops lines unless the environment variable
///        BASEKIT_TRACE is set: "stderr" prints to standard error, any other value is the path of a
///        file to append to. Programs with raised privileges (set-user-id) ignore the variable.
/// @return the former sink, null for the default
VANTRY_EXPORT TraceSink SetTraceSink(TraceSink sink);

/// Traces one line of any length, formatted as by printf. Never throws.
/// @param detail0, level, detail1 describe the call; they do not change the line
/// @param line the source line of the call
/// @param file the calling file's trace object
VANTRY_EXPORT void tracef(unsigned char detail0, int level, int line, Trace_file& file,
                          unsigned char detail1, const char* format, ...)
    __attribute__((format(printf, 6, 7)));
