#pragma once

/// @file
/// Assertions that report a failure and continue.

#include "basekit/Export.h"

/// Receives a failed assertion: the text of the expression, the source file, the line and the
/// signature of the enclosing function. Must return.
using AssertSink = void (*)(const char* expression, const char* file, int line,
                            const char* function);

/// Sets the receiver of failed assertions. Thread-safe.
/// @param sink null for the default, which prints one line to standard error
/// @return the former sink, null for the default
VANTRY_EXPORT AssertSink SetAssertSink(AssertSink sink);

/// Reports a failed assertion and returns; the caller continues with the value as it is.
VANTRY_EXPORT void process_assert(const char* expression, const char* file, int line,
                                  const char* function);
