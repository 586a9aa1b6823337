#pragma once

#include <sys/stat.h>

namespace vantry_internal {

/// Sets the owner, group, mode and access control list of a new file to those of the file that it
/// will replace. Nobody gains a right that the replaced file did not grant: what cannot be kept
/// narrows the rest. A group that cannot be kept gets no rights, and the set-user-id bits need
/// both.
/// @param file open, empty of rights for others so far (mode 0600)
/// @param former open, or opened with O_PATH where it must not be read
/// @return 0 or the system's error number
int CopyRights(int file, int former);

/// Sets the rights of a new file to those that open() grants with `mode`: narrowed by the umask
/// or, where the folder has one, by its default access control list.
/// @param folder the folder's descriptor; O_PATH will do
/// @return 0 or the system's error number
int GrantRights(int file, int folder, mode_t mode);

}  // namespace vantry_internal
