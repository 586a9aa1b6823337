#pragma once

#include "QtInclude/Poly_Hash.h"

/// Holds the hash that all of a process shares:
///
///     const unsigned int h = LpStringHash::s_polyHash.Hash("hello world", 11);  // 0xdf1a7dd9
class VANTRY_EXPORT LpStringHash {
public:
    LpStringHash() = default;

    /// Degree 32, polynomial 0xc0000401, initial value 1. Ready when the library is mapped, so any
    /// static initializer may use it. Any number of threads may hash with it. Calling Init on it
    /// changes it for the entire process.
    static Poly_Hash<32> s_polyHash;
};
