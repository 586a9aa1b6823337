#pragma once

// Division through carry-less multiplication, for vectors of any width: each of the files that
// include this is compiled for the processors that have its vector. A Vector has
//
//     words                   how many words of 64 bits it holds
//     Load(bytes)             as many bytes, the first one on top of its lane of 128 bits
//     Powers(powers)          as many powers
//     Twice(powers)           two powers, in each lane
//     First(pair)             a pair in the first lane and zeros
//     Times(vector, powers)   for each lane the sum of its two products
//     operator^
//     Sum()                   of all lanes
//
// A string of k words is the sum of word[j] * x^(64 * (k - 1 - j)). Modulo P each power is a
// constant of 32 bits, so the string is as good as a sum of products of at most 95 bits, none of
// which waits for another; only the sum is divided. What precedes the words, a hash and bytes that
// fill no word, makes two words more. A long string is first folded: words that stand a whole
// piece before others are multiplied by that power, and are added to them.
//
// The division of a sum A, at most 96 bits, multiplies by m = x^96 / P: the quotient is exactly
// (A / x^32) * m / x^64.

#include <cstring>

#include "QtInclude/Intrinsics.h"
#include "QtInclude/PolyRemainder.h"

namespace {

// Sums and remainders stand 32 bits higher than said above: A / x^32 is then half a register.
struct Constants {
    // Of one, x^64, x^128, ..., in falling order, the remainders, 32 bits higher.
    static constexpr std::size_t count = 34;
    std::uint64_t power[count] = {};
    // P without its x^32, 32 bits higher.
    std::uint64_t divisor;
    // m without its x^64.
    std::uint64_t inverse = 0;

    // Without the powers from x^128 on.
    constexpr explicit Constants(std::uint32_t polynomial)
        : divisor(std::uint64_t{polynomial} << 32) {
        std::uint32_t remainder = 1;
        for (int exponent = 0; exponent < 96; ++exponent) {
            if (exponent % 64 == 0) {
                power[count - 1 - exponent / 64] = std::uint64_t{remainder} << 32;
            }
            inverse = inverse << 1 | remainder >> 31;
            remainder = TimesX(remainder);
        }
    }

    constexpr std::uint32_t TimesX(std::uint32_t value) const {
        return (value << 1) ^ (value >> 31 != 0 ? static_cast<std::uint32_t>(divisor >> 32) : 0);
    }

    // The first of the powers of a string of so many words.
    const std::uint64_t* Of(std::size_t words) const { return power + count - words; }
};

constexpr Constants MakeSharedConstants() {
    Constants constants(sharedPolynomial);
    std::uint32_t remainder = 1;
    for (std::size_t i = Constants::count; i-- > 0;) {
        constants.power[i] = std::uint64_t{remainder} << 32;
        for (int bit = 0; bit < 64; ++bit) {
            remainder = constants.TimesX(remainder);
        }
    }
    return constants;
}

inline constexpr Constants sharedConstants = MakeSharedConstants();

// The word is the lower half.
inline __m128i LoadWord(const void* word) {
    return _mm_loadl_epi64(static_cast<const __m128i*>(word));
}

inline __m128i LoadPair(const void* words) {
    return _mm_loadu_si128(static_cast<const __m128i*>(words));
}

inline __m128i Pair(std::uint64_t high, std::uint64_t low) {
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
}

inline __m128i FirstByteOnTop(__m128i lane) {
    return _mm_shuffle_epi8(lane, Pair(0x0001020304050607, 0x08090a0b0c0d0e0f));
}

// The upper word of a lane stands before the lower one, so it meets the first of two powers.
inline __m128i TimesPair(__m128i words, __m128i powers) {
    return _mm_xor_si128(_mm_clmulepi64_si128(words, powers, 0x01),
                         _mm_clmulepi64_si128(words, powers, 0x10));
}

// The remainder is the lower half.
inline __m128i Divide(const Constants& constants, __m128i sum) {
    const __m128i product = _mm_clmulepi64_si128(sum, LoadWord(&constants.inverse), 0x01);
    const __m128i quotient = _mm_xor_si128(product, sum);  // its upper half
    return _mm_xor_si128(sum, _mm_clmulepi64_si128(quotient, LoadWord(&constants.divisor), 0x01));
}

inline std::uint32_t DivideFully(const Constants& constants, __m128i sum) {
    const __m128i remainder = _mm_srli_epi64(Divide(constants, sum), 32);
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(remainder));
}

// With the powers of so many words.
inline Constants MakeConstants(std::uint32_t polynomial, std::size_t words) {
    Constants constants(polynomial);
    const std::uint64_t* const last = constants.power + Constants::count - 1;
    for (std::size_t i = 2; i < words; ++i) {
        // Four at a time do not wait for each other.
        const std::size_t step = i <= 4 ? 1 : 4;
        const __m128i factor = _mm_srli_epi64(LoadWord(last - step), 32);
        const __m128i product = _mm_clmulepi64_si128(factor, LoadWord(last - i + step), 0x00);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(constants.power + Constants::count - 1 - i),
                         Divide(constants, product));
    }
    return constants;
}

inline std::uint64_t BigEndian64(const char* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap64(word);
}

inline std::uint64_t BigEndian32(const char* bytes) {
    std::uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap32(word);
}

// Up to 8 bytes, after the hash, 32 bits higher. Some bytes may be read twice.
inline __m128i UpTo8Bytes(std::uint32_t hash, const char* bytes, std::size_t count) {
    if (__builtin_expect(count >= 4, 1)) {
        const std::uint64_t word =
            BigEndian32(bytes) << (8 * count - 32) | BigEndian32(bytes + count - 4);
        return Pair(std::uint64_t{hash} << (8 * count - 32) | word >> 32, word << 32);
    }
    const auto at = [bytes, count](std::size_t i) {
        return std::uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * (count - 1 - i);
    };
    std::uint64_t word = hash;
    if (count != 0) {
        word = word << 8 * count | at(0) | at(count / 2) | at(count - 1);
    }
    return Pair(word >> 32, word << 32);
}

// Of the last words of a string.
inline __m128i SumOfPairs(const char* bytes, std::size_t words, const std::uint64_t* powers) {
    __m128i sum = _mm_setzero_si128();
    for (; words >= 2; words -= 2, bytes += 16, powers += 2) {
        sum = _mm_xor_si128(sum, TimesPair(FirstByteOnTop(LoadPair(bytes)), LoadPair(powers)));
    }
    if (words != 0) {  // its power is one
        sum = _mm_xor_si128(sum, _mm_srli_si128(FirstByteOnTop(LoadWord(bytes)), 4));
    }
    return sum;
}

template <class Vector>
constexpr std::size_t pieceWords = 4 * Vector::words;

// The hash and 1 to 8 bytes, which more follow.
inline __m128i FirstBytes(std::uint32_t hash, const char* bytes, std::size_t count) {
    const std::uint64_t first = BigEndian64(bytes) >> (64 - 8 * count);
    const std::uint64_t low = std::uint64_t{hash} << (8 * count - 8) << 8 | first;
    return Pair(std::uint64_t{hash} >> (64 - 8 * count), low);
}

// More than 8 bytes, the last of which are so many words. Where the compiler knows how many it
// leaves no loop and no address to reckon.
[[gnu::always_inline]] inline std::uint32_t FewWords(std::uint32_t hash, const char* bytes,
                                                     std::size_t count, std::size_t words,
                                                     const Constants& constants) {
    const std::size_t before = count - 8 * words;
    const __m128i sum =
        TimesPair(FirstBytes(hash, bytes, before), LoadPair(constants.Of(words + 2)));
    return DivideFully(constants,
                       _mm_xor_si128(sum, SumOfPairs(bytes + before, words, constants.Of(words))));
}

// More than 8 bytes, and less than a piece.
template <class Vector>
[[gnu::noinline]] std::uint32_t ShortRemainder(std::uint32_t hash, const char* bytes,
                                               std::size_t count, const Constants& constants) {
    std::size_t words = (count - 1) / 8;
    const std::size_t before = count - 8 * words;
    const std::uint64_t* powers = constants.Of(words);
    __m128i sum = TimesPair(FirstBytes(hash, bytes, before), LoadPair(powers - 2));
    bytes += before;
    if (words >= Vector::words) {
        Vector lanes = Vector::First(sum);
        for (; words >= Vector::words; words -= Vector::words) {
            lanes = lanes ^ Times(Vector::Load(bytes), Vector::Powers(powers));
            bytes += 8 * Vector::words;
            powers += Vector::words;
        }
        sum = lanes.Sum();
    }
    return DivideFully(constants, _mm_xor_si128(sum, SumOfPairs(bytes, words, powers)));
}

template <class Vector>
std::uint32_t LongRemainder(std::uint32_t hash, const char* bytes, std::size_t count,
                            const Constants& constants);

// The shortest strings take less time than a call, so they are done where this is.
template <class Vector>
[[gnu::always_inline]] inline std::uint32_t Remainder(std::uint32_t hash, const char* bytes,
                                                      std::size_t count,
                                                      const Constants& constants) {
    if (__builtin_expect(count <= 8, 1)) {
        return DivideFully(constants, UpTo8Bytes(hash, bytes, count));
    }
    if (count <= 32) {
        return count <= 16   ? FewWords(hash, bytes, count, 1, constants)
               : count <= 24 ? FewWords(hash, bytes, count, 2, constants)
                             : FewWords(hash, bytes, count, 3, constants);
    }
    return count < 8 * pieceWords<Vector> ? ShortRemainder<Vector>(hash, bytes, count, constants)
                                          : LongRemainder<Vector>(hash, bytes, count, constants);
}

// A piece or more.
template <class Vector>
[[gnu::noinline]] std::uint32_t LongRemainder(std::uint32_t hash, const char* bytes,
                                              std::size_t count, const Constants& constants) {
    constexpr std::size_t vectorBytes = 8 * Vector::words;
    constexpr std::size_t pieceBytes = 4 * vectorBytes;
    Vector a = Vector::Load(bytes);
    Vector b = Vector::Load(bytes + vectorBytes);
    Vector c = Vector::Load(bytes + 2 * vectorBytes);
    Vector d = Vector::Load(bytes + 3 * vectorBytes);
    const __m128i before = _mm_clmulepi64_si128(Pair(0, hash), LoadWord(constants.Of(3)), 0x00);
    a = a ^ Vector::First(_mm_srli_si128(before, 4));

    const Vector powers =
        Vector::Twice(_mm_srli_epi64(LoadPair(constants.Of(pieceWords<Vector> + 2)), 32));
    while (bytes += pieceBytes, count -= pieceBytes, count >= pieceBytes) {
        a = Times(a, powers) ^ Vector::Load(bytes);
        b = Times(b, powers) ^ Vector::Load(bytes + vectorBytes);
        c = Times(c, powers) ^ Vector::Load(bytes + 2 * vectorBytes);
        d = Times(d, powers) ^ Vector::Load(bytes + 3 * vectorBytes);
    }
    const Vector sum = Times(a, Vector::Powers(constants.Of(4 * Vector::words))) ^
                       Times(b, Vector::Powers(constants.Of(3 * Vector::words))) ^
                       Times(c, Vector::Powers(constants.Of(2 * Vector::words))) ^
                       Times(d, Vector::Powers(constants.Of(Vector::words)));
    hash = DivideFully(constants, sum.Sum());
    return Remainder<Vector>(hash, bytes, count, constants);
}

template <class Vector>
std::uint32_t RemainderOfAny(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                             std::size_t count) {
    return Remainder<Vector>(hash, bytes, count, MakeConstants(polynomial, pieceWords<Vector> + 2));
}

}  // namespace
