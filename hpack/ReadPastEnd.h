#pragma once

#include "hpack/Generic32.h"

/// For a length in a damaged stream that reaches beyond its end: brings about the error that a read
/// of that length gives, without making room for it. It throws what the stream throws.
[[noreturn]] void ReadPastEnd(Generic32& stream);
