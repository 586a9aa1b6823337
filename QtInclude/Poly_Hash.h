#pragma once

/// @file
/// The polynomial hash and its errors.

#include <cstddef>
#include <cstdint>

#include "basekit/qtString.h"
#include "basekit/qtxAll.h"

/// The family of the hash's errors.
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

/// Hashes byte strings by division over GF(2): the hash is the remainder of
/// initial value * x^(8n) + the n bytes, read as a polynomial with the first byte on top, modulo
/// P(x) = x^degree + polynomial.
///
///     Poly_Hash<32> hash;
///     hash.Init(16, Hash_primitive_seed[16], 0);
///     const unsigned int whole = hash.Hash("hello world");
///     const unsigned int first = hash.Hash("hello", 5);
///     hash.Extend(first, " world", 6) == whole;  // true
///
/// Values depend on the polynomial and the initial value alone, not on the machine, and may be
/// stored. This is a fingerprint, not a defence: whoever wants to can make two strings collide.
///
/// Hashing only reads the object, from any number of threads; Init must not run meanwhile.
///
/// `N` is the largest degree; the library holds Poly_Hash<32>, whose objects take 1036 bytes.
template <int N>
class VANTRY_EXPORT Poly_Hash {
    static_assert(N >= 8 && N <= 32, "a hash is a 32-bit word, and a byte of it indexes the table");

public:
    /// Modulo x^8, from 0, until Init is called.
    constexpr Poly_Hash() = default;
    /// As Init; a constant expression makes an object that no constructor can come before.
    constexpr Poly_Hash(int newDegree, unsigned int polynomial, unsigned int newInitialValue) {
        if (!IsDegree(newDegree)) {
            ThrowInitErr(newDegree);
        }
        Set(newDegree, polynomial, newInitialValue);
    }

    /// Takes another polynomial. Bits of `polynomial` and `initialValue` at or above `degree` are
    /// ignored.
    ///
    /// @throws xPoly_HashInitErr "Initiation error, requested size (DEGREE) is greater than N\n"
    ///         for a degree above N or negative, "Initiation error, requested size (DEGREE) is
    ///         smaller than 8\n" for 0 to 7; the object is unchanged then
    void Init(int degree, unsigned int polynomial, unsigned int initialValue);

    /// The hash of these bytes: at most Degree() bits, and InitialValue() for none.
    /// @{
    unsigned int Hash(const char* bytes, std::size_t count) const;
    unsigned int Hash(const qtString& bytes) const;
    /// @}

    /// The hash of everything hashed so far followed by `bytes`. Bits of `hash` at or above the
    /// degree are ignored.
    unsigned int Extend(unsigned int hash, const char* bytes, std::size_t count) const;

    /// The number of bits of a hash, 8 to N.
    int Degree() const { return degree; }
    /// 2^degree - 1
    unsigned int Mask() const { return mask; }
    /// The hash of the empty string.
    unsigned int InitialValue() const { return initialValue; }
    /// The remainder of byte(x) * x^degree modulo P(x).
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
        // remainder is that of x^(degree + k), and table[b] the sum of those of the bits of b.
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

    // Apart from Extend, which needs no stack frame without it.
    [[gnu::noinline]] VANTRY_LOCAL std::uint32_t ExtendOther(std::uint32_t hash, const char* bytes,
                                                             std::size_t count) const;
    // The definition of the hash: a step for each byte.
    VANTRY_LOCAL std::uint32_t StepBytes(std::uint32_t hash, const char* bytes,
                                         std::size_t count) const;

    int degree = smallestDegree;
    std::uint32_t table[256] = {};
    std::uint32_t initialValue = 0;
    std::uint32_t mask = 0xFF;
};

extern template class Poly_Hash<32>;
static_assert(sizeof(Poly_Hash<32>) == 1036);
