#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "QtInclude/Poly_Hash.h"

/// Division of byte strings by a polynomial of degree 32, P = x^32 + polynomial, faster than a
/// table look-up per byte: all of these give the remainder of hash * x^(8 * count) + bytes.

/// The polynomial that nearly everybody uses: the compiler has prepared for it.
inline constexpr std::uint32_t sharedPolynomial = Hash_primitive_seed[32];

using SharedRemainder = std::uint32_t (*)(std::uint32_t hash, const char* bytes, std::size_t count);
using AnyRemainder = std::uint32_t (*)(std::uint32_t polynomial, std::uint32_t hash,
                                       const char* bytes, std::size_t count);

/// Divides by the shared polynomial, with the best that the processor has. It works at any time:
/// until one has been chosen it is a function that chooses.
extern std::atomic<SharedRemainder> sharedRemainder;

/// How to divide by any other polynomial. Its preparation, in each call, pays for strings from
/// `pays` bytes on.
struct PolyRemainder {
    AnyRemainder divide;
    std::size_t pays;
};
const PolyRemainder& GetPolyRemainder();

/// The ways there are: tables of the bytes of a word for any machine, carry-less multiplication of
/// 128, 256 and 512 bits for the CpuLevel of that name.
std::uint32_t SharedRemainderTables(std::uint32_t hash, const char* bytes, std::size_t count);
std::uint32_t SharedRemainder128(std::uint32_t hash, const char* bytes, std::size_t count);
std::uint32_t SharedRemainder256(std::uint32_t hash, const char* bytes, std::size_t count);
std::uint32_t SharedRemainder512(std::uint32_t hash, const char* bytes, std::size_t count);

std::uint32_t AnyRemainderTables(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                                 std::size_t count);
std::uint32_t AnyRemainder128(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                              std::size_t count);
std::uint32_t AnyRemainder256(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                              std::size_t count);
std::uint32_t AnyRemainder512(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                              std::size_t count);
