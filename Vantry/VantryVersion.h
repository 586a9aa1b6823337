#pragma once

/// @file
/// The version of the loaded library. Safe to call from any thread.

#include "basekit/Export.h"

extern "C" {
/// Writes the version of the loaded library, "1.0.0.79.0", and a NUL into `buffer`.
/// @param buffer room for 11 bytes
VANTRY_EXPORT void GetVantryVersion(char* buffer);

/// Writes the same text as GetVantryVersion.
/// @param buffer room for 11 bytes
VANTRY_EXPORT void GetQuoVersion(char* buffer);
}
