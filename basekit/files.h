#pragma once

/// @file
/// File system helpers. Thread-safe.

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// Reads the file at `path` into `content`, to its end.
/// @return 0 on success, otherwise the negated error number (errno); `content` is then unchanged
/// @throws std::bad_alloc
VANTRY_EXPORT int qtStringRead(qtString& content, const qtString& path);

/// Returns the kind of file that `path` names, following links: 0 none, or none that the caller may
/// see; 1 anything but a directory; 2 a directory.
VANTRY_EXPORT int IsFileOrDirectory(const qtString& path);
