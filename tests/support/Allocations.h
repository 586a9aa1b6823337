#pragma once

#include <atomic>
#include <cstddef>

/// What operator new does in a test program that links tests/support/Allocations.cpp.
namespace Allocations {

/// The largest single allocation since it was last set to 0.
extern std::atomic<std::size_t> largest;

/// How many allocations succeed before one fails, once, with std::bad_alloc; negative: all do.
extern std::atomic<long> untilFailure;

/// If set, is called with every block before it is freed.
extern void (*onDelete)(const void* block);

}  // namespace Allocations
