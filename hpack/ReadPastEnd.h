#pragma once

#include "hpack/Generic32.h"

namespace vantry_internal {

/// Raises the error that a read beyond the end of `stream` raises, without allocating what a
/// damaged length asks for. @throws what the stream throws
[[noreturn]] void ReadPastEnd(Generic32& stream);

}  // namespace vantry_internal
