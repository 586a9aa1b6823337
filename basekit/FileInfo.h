#pragma once

/// @file
/// Where and when a throwing source file was built. A header of its own, because compilers' caches
/// give up on files that see the date.

/// The file, line, build date and build time of its position: the arguments of qtxAll::SetFileInfo.
#define QT_FILE_INFO __FILE__, __LINE__, __DATE__, __TIME__
