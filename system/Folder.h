#pragma once

#include <string>

#include "system/FileDescriptor.h"

namespace vantry_internal {

/// The folder of a path, "." for a bare name.
std::string FolderOf(const std::string& path);

/// The last part of a path.
std::string NameIn(const std::string& path);

/// The file that a path leads to through links; it need not exist. As the kernel does where it
/// protects links, refuses a link that another user has put into a folder where anybody may.
/// @throws SystemError "cannot follow the link PATH: ..."
std::string FollowLinks(const std::string& path);

/// Opens a folder as a starting point for the ...at() calls; it need not be readable.
/// @throws SystemError "cannot open PATH: ..."
FileDescriptor OpenFolder(const std::string& path);

/// Creates the folder and those above it where they are missing, mode 0700, each on disk.
/// @throws SystemError
void CreateFolders(const std::string& path);

/// Brings the names in a folder to the disk. @throws SystemError "cannot sync SHOWN: ..."
/// @param folder as OpenFolder() returns it
/// @param file a file in it, by which a folder that must not be read is synced; -1: none
void SyncFolder(int folder, const std::string& shown, int file = -1);

/// Whether a name in an open folder (or AT_FDCWD) leads to this open file.
/// @param flags 0 to follow links, AT_SYMLINK_NOFOLLOW not to
bool IsNamed(int file, int folder, const std::string& name, int flags);

}  // namespace vantry_internal
