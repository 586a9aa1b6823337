#pragma once

#include "QtInclude/Poly_Hash.h"

/// Holds the hash that a whole process shares:
///
///     const unsigned int h = LpStringHash::s_polyHash.Hash("hello world", 11);  // 0xdf1a7dd9
class VANTRY_EXPORT LpStringHash {
public:
    LpStringHash() = default;

    /// Degree 32, polynomial 0xc0000401, initial value 1. It is ready when the library is mapped,
    /// so any constructor may use it. Any number of threads may hash with it; whoever calls Init
    /// on it changes it for everybody.
    static Poly_Hash<32> s_polyHash;
};
