#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vantry_internal {

/// Division of byte strings by a polynomial of degree 32, P = x^32 + polynomial, faster than a
/// table lookup per byte. Each function returns the remainder of hash * x^(8 * count) + bytes.

/// The polynomial of the shared hash, for which the compiler prepares constants.
inline constexpr std::uint32_t sharedPolynomial = 0xc0000401;

using SharedRemainder = std::uint32_t (*)(std::uint32_t hash, const char* bytes, std::size_t count);
using AnyRemainder = std::uint32_t (*)(std::uint32_t polynomial, std::uint32_t hash,
                                       const char* bytes, std::size_t count);

/// Divides by the shared polynomial with the fastest kernel of the GetCpuLevel(). Ready before any
/// static initializer: it starts as a function that selects the kernel.
extern std::atomic<SharedRemainder> sharedRemainder;

/// Divides by any other polynomial.
struct PolyRemainder {
    AnyRemainder divide;
    std::size_t breakEvenBytes;  ///< shorter strings are not worth the setup in each call
};
/// Returns the fastest kernel of the GetCpuLevel().
const PolyRemainder& GetPolyRemainder();

/// The kernels: lookup tables for any processor, and carry-less multiplication of 128, 256 and 512
/// bits for the CpuLevel of that name.
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

}  // namespace vantry_internal
