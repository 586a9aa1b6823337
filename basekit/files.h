#pragma once

/// @file
/// Small questions to the file system. Safe to call from any thread.

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// Reads the whole file at `path` into `content`.
/// @return 0, or minus the system's error number; `content` is then unchanged.
/// @throws std::bad_alloc when there is no memory for the content
VANTRY_EXPORT int qtStringRead(qtString& content, const qtString& path);

/// Tells what `path` names: 0 nothing that can be seen, 1 something else than a directory, 2 a
/// directory. Links are followed.
VANTRY_EXPORT int IsFileOrDirectory(const qtString& path);
