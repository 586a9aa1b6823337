#pragma once

/// @file
/// Failed assertions are reported and survived.

#include "basekit/Export.h"

/// Receives a failed assertion: the expression's text, the source file, the line and the
/// signature of the enclosing function. It must return.
using AssertSink = void (*)(const char* expression, const char* file, int line,
                            const char* function);

/// Sends failed assertions to `sink` from now on; null restores the default, which writes one
/// line on standard error. Safe to call from any thread.
/// @return the sink that it replaces, null for the default.
VANTRY_EXPORT AssertSink SetAssertSink(AssertSink sink);

/// Reports a failed assertion and returns: the work goes on with the value as it is.
VANTRY_EXPORT void process_assert(const char* expression, const char* file, int line,
                                  const char* function);
