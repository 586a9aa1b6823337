#pragma once

/// @file
/// The polynomial hash and its errors.

#include <cstddef>
#include <cstdint>

#include "basekit/qtString.h"
#include "basekit/qtxAll.h"

/// Base class of the hash's errors.
class VANTRY_EXPORT xPoly_Hash : public qtxAll {
public:
    using qtxAll::qtxAll;
    ~xPoly_Hash() override;
    const char* BaseString() const override;
};

/// Thrown by Poly_Hash::Init: code 8, level 1, with file information.
class VANTRY_EXPORT xPoly_HashInitErr : public xPoly_Hash {
public:
    using xPoly_Hash::xPoly_Hash;
    ~xPoly_HashInitErr() override;
};

/// Entry d holds the terms below x^d of a primitive polynomial of degree d, as Poly_Hash::Init
/// takes them; bit k stands for x^k.
inline constexpr std::uint32_t Hash_primitive_seed[33] = {
    0x0,       0x1,       0x3,        0x5,        0x9,       0x9,       0x21,
    0x41,      0x71,      0x21,       0x81,       0x201,     0x941,     0x1601,
    0x2111,    0x4001,    0xa011,     0x4001,     0x801,     0x64001,   0x20001,
    0x80001,   0x200001,  0x40001,    0xc20001,   0x400001,  0x3100001, 0x6400001,
    0x2000001, 0x8000001, 0x30000081, 0x10000001, 0xc0000401};

/// Hashes byte strings by division over GF(2). The hash of n bytes is the remainder of
/// initial value * x^(8n) + the bytes, read as a polynomial whose highest terms are the first byte,
/// modulo P(x) = x^degree + polynomial.
///
///     Poly_Hash<32> hash;
///     hash.Init(16, Hash_primitive_seed[16], 0);
///     const unsigned int whole = hash.Hash("hello world");
///     const unsigned int first = hash.Hash("hello", 5);
///     hash.Extend(first, " world", 6) == whole;  // true
///
/// Values depend only on the polynomial and the initial value, not on the machine, and may be
/// stored. The hash is not cryptographic: anyone can construct collisions.
///
/// Threads: hashing only reads the object, so any number of threads may hash with it. Init must not
/// run at the same time.
///
/// `N` is the largest degree. The library contains Poly_Hash<32>, whose objects take 1036 bytes.
template <int N>
class VANTRY_EXPORT Poly_Hash {
    static_assert(N >= 8 && N <= 32, "a hash is a 32-bit word, and a byte of it indexes the table");

public:
    /// Until Init is called, hashes modulo x^8 with initial value 0.
    constexpr Poly_Hash() = default;
    /// Like Init. With constant arguments the object is ready before any static initializer.
    /// @throws xPoly_HashInitErr as Init
    constexpr Poly_Hash(int newDegree, unsigned int polynomial, unsigned int newInitialValue) {
        if (!IsDegree(newDegree)) {
            ThrowInitErr(newDegree);
        }
        Set(newDegree, polynomial, newInitialValue);
    }

    /// Sets the polynomial.
    /// @param degree 8 to N
    /// @param polynomial the terms below x^degree; bits at or above `degree` are ignored
    /// @param initialValue the hash of the empty string; bits at or above `degree` are ignored
    /// @throws xPoly_HashInitErr "Initiation error, requested size (DEGREE) is greater than N\n"
    ///         if the degree is above N or negative, "Initiation error, requested size (DEGREE) is
    ///         smaller than 8\n" if it is 0 to 7; the object is unchanged
    void Init(int degree, unsigned int polynomial, unsigned int initialValue);

    /// Returns the hash of these bytes: at most Degree() bits; InitialValue() if there are none.
    /// @{
    unsigned int Hash(const char* bytes, std::size_t count) const;
    unsigned int Hash(const qtString& bytes) const;
    /// @}

    /// Continues a hash.
    /// @param hash of the preceding bytes; bits at or above the degree are ignored
    /// @return the hash of the preceding bytes followed by `bytes`
    unsigned int Extend(unsigned int hash, const char* bytes, std::size_t count) const;

    /// Returns the number of bits of a hash, 8 to N.
    int Degree() const { return degree; }
    /// Returns 2^degree - 1.
    unsigned int Mask() const { return mask; }
    /// Returns the hash of the empty string.
    unsigned int InitialValue() const { return initialValue; }
    /// Returns the remainder of byte(x) * x^degree modulo P(x).
    constexpr unsigned int TableEntry(unsigned char byte) const { return table[byte]; }

private:
    enum : int { smallestDegree = 8 };

    static constexpr bool IsDegree(int value) { return value >= smallestDegree && value <= N; }
    [[noreturn]] static void ThrowInitErr(int value);

    constexpr void Set(int newDegree, std::uint32_t polynomial, std::uint32_t newInitialValue) {
        degree = newDegree;
        mask = 0xFFFFFFFFu >> (32 - degree);
        initialValue = newInitialValue & mask;
        const std::uint32_t terms = polynomial & mask;
        // The remainder of x^(degree + k); table[b] is the sum of those of the bits of b.
        std::uint32_t remainder = terms;
        table[0] = 0;
        for (unsigned int bit = 1; bit < 256; bit <<= 1) {
            for (unsigned int rest = 0; rest < bit; ++rest) {
                table[bit + rest] = table[rest] ^ remainder;
            }
            const bool overflows = (remainder >> (degree - 1) & 1) != 0;
            remainder = (remainder << 1 & mask) ^ (overflows ? terms : 0);
        }
    }

    // Separate, because Extend then needs no stack frame.
    [[gnu::noinline]] VANTRY_LOCAL std::uint32_t ExtendOther(std::uint32_t hash, const char* bytes,
                                                             std::size_t count) const;
    // The definition of the hash: one step per byte.
    VANTRY_LOCAL std::uint32_t StepBytes(std::uint32_t hash, const char* bytes,
                                         std::size_t count) const;

    int degree = smallestDegree;
    std::uint32_t table[256] = {};
    std::uint32_t initialValue = 0;
    std::uint32_t mask = 0xFF;
};

extern template class Poly_Hash<32>;
static_assert(sizeof(Poly_Hash<32>) == 1036);
