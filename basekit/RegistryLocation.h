#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "system/FileLock.h"
#include "system/SystemError.h"

namespace vantry_internal {

// What the registry's database and the key file next to it share: their path, the lock of their
// writers, and the reason of the last failure.

/// The registry's path without a suffix, absolute; empty when the environment names none.
std::string RegistryPath();

/// The lock of everybody who writes the database at `file`, links followed: the file of that name
/// and ".lock". It is created when missing, as are the folders above it.
/// @throws SystemError
std::unique_ptr<FileLock> LockRegistry(const std::string& file);

/// Makes the owner of the database, if there is one, the owner of a file that root has created.
void GiveToOwnerOf(const std::string& database, int file);

/// The last failure of the calling thread, as UnixRegistry::LastError() returns it: "FILE: REASON",
/// or empty. Works until the process ends, in destructors of static objects, too.
/// @{
const char* RegistryError();
void SetRegistryError(std::string_view file, std::string_view reason);
void SetRegistryError(const SystemError& error);
void SetRegistryError(std::string_view text);
void ClearRegistryError();
/// @}

/// Receives a line for people once a wait for the lock takes longer than a second.
using RegistryWaitReport = void (*)(const char* line);
RegistryWaitReport SetRegistryWaitReport(RegistryWaitReport report);

}  // namespace vantry_internal
