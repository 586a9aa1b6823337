#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "basekit/UnixRegistry.h"

namespace vantry_tools {

using Records = std::map<std::string, std::string>;

/// Opens a registry that must exist. @throws ToolFailure that names the file and the cause
void OpenExisting(UnixRegistry& store, bool readWrite = false);

/// The records whose keys start with `prefix`. @throws ToolFailure, also for a damaged database
Records ReadRecords(UnixRegistry& store, std::string_view prefix = "");

/// Whether a key is one of those whose values are encrypted passwords, which export leaves out.
bool IsPassword(std::string_view key);

/// The value in one line for people, quoted where it must be; never a password.
std::string ShowValue(const Records::value_type& record);

/// Says for each record of `wanted` whether storing it would add or change one, or change nothing.
void PrintChanges(const Records& wanted);

/// Runs `print`, which writes on standard output, and takes what it writes to `file` instead, which
/// then appears or changes in one step; "-" and the empty name are the standard output itself.
/// @param mode of a file that did not exist; the umask narrows it
/// @throws ToolFailure when not all of it could be written
void PrintTo(const std::string& file, const std::function<void()>& print, unsigned mode = 0666);

/// What `print` writes on standard output. @throws ToolFailure when there is no room for it
std::string PrintedBy(const std::function<void()>& print);

/// The whole content of a file; "-" is the standard input. @throws ToolFailure
std::string ReadWhole(const std::string& file);

}  // namespace vantry_tools
