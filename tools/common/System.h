#pragma once

#include "system/AtomicFile.h"
#include "system/FileDescriptor.h"
#include "system/FileLock.h"

namespace vantry_tools {

// The tools' names for the layer of files and locks.
using vantry_internal::AtomicFile;
using vantry_internal::FileDescriptor;
using vantry_internal::FileLock;
using vantry_internal::LockWait;
using vantry_internal::OpenRegular;
using vantry_internal::OpenRegularAt;
using vantry_internal::ReadSome;
using vantry_internal::SystemError;
using vantry_internal::WriteAll;

}  // namespace vantry_tools
