#pragma once

// Division by carry-less multiplication, for vectors of any width. Each file that includes this is
// compiled for processors with such vectors and defines a Vector with
//
//     words                   number of 64-bit words
//     Load(bytes)             that many words; the first byte is the top one of its 128-bit lane
//     Powers(powers)          that many powers
//     Twice(powers)           the same two powers in each lane
//     First(pair)             a pair in the first lane, zeros elsewhere
//     Times(vector, powers)   in each lane, the sum of its two products
//     operator^
//     Sum()                   sum of all lanes
//
// A string of k words is the sum of word[j] * x^(64 * (k - 1 - j)). Modulo P each power is a 32-bit
// constant, so the string is congruent to a sum of independent products of at most 95 bits, and
// only that sum is divided. The hash and the bytes before the first full word make up two more
// words. A long string is folded first: each piece is multiplied by the power that moves it onto
// the next one, and added to it.
//
// A sum A of at most 96 bits is divided by multiplying with m = x^96 / P: the quotient is exactly
// (A / x^32) * m / x^64.

#include <cstring>

#include "cpu/Intrinsics.h"
#include "cpu/PolyRemainder.h"

namespace vantry_internal {

namespace {

// Sums and remainders are shifted left by 32 bits, so that A / x^32 is half a register.
struct Constants {
    // Remainders of ..., x^128, x^64, 1, shifted.
    static constexpr std::size_t count = 34;
    std::uint64_t power[count] = {};
    // P without x^32, shifted.
    std::uint64_t divisor;
    // m without x^64.
    std::uint64_t inverse = 0;

    // Leaves out the powers from x^128 on.
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

    // The powers for a string of that many words.
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

// Loads a word into the lower half.
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

// The upper word of a lane is the earlier one, so it is multiplied by the first power.
inline __m128i TimesPair(__m128i words, __m128i powers) {
    return _mm_xor_si128(_mm_clmulepi64_si128(words, powers, 0x01),
                         _mm_clmulepi64_si128(words, powers, 0x10));
}

// The lower half of the result is the remainder.
inline __m128i Divide(const Constants& constants, __m128i sum) {
    const __m128i product = _mm_clmulepi64_si128(sum, LoadWord(&constants.inverse), 0x01);
    const __m128i quotient = _mm_xor_si128(product, sum);  // in the upper half
    return _mm_xor_si128(sum, _mm_clmulepi64_si128(quotient, LoadWord(&constants.divisor), 0x01));
}

inline std::uint32_t DivideFully(const Constants& constants, __m128i sum) {
    const __m128i remainder = _mm_srli_epi64(Divide(constants, sum), 32);
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(remainder));
}

// Includes the powers for that many words.
inline Constants MakeConstants(std::uint32_t polynomial, std::size_t words) {
    Constants constants(polynomial);
    const std::uint64_t* const last = constants.power + Constants::count - 1;
    for (std::size_t i = 2; i < words; ++i) {
        // Steps of four make four products independent.
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

// The hash followed by up to 8 bytes, shifted. Some bytes may be read twice.
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

// The sum for the last words of a string.
inline __m128i SumOfPairs(const char* bytes, std::size_t words, const std::uint64_t* powers) {
    __m128i sum = _mm_setzero_si128();
    for (; words >= 2; words -= 2, bytes += 16, powers += 2) {
        sum = _mm_xor_si128(sum, TimesPair(FirstByteOnTop(LoadPair(bytes)), LoadPair(powers)));
    }
    if (words != 0) {  // the power of the last word is 1
        sum = _mm_xor_si128(sum, _mm_srli_si128(FirstByteOnTop(LoadWord(bytes)), 4));
    }
    return sum;
}

template <class Vector>
constexpr std::size_t pieceWords = 4 * Vector::words;

// The hash followed by the first 1 to 8 bytes.
inline __m128i FirstBytes(std::uint32_t hash, const char* bytes, std::size_t count) {
    const std::uint64_t first = BigEndian64(bytes) >> (64 - 8 * count);
    const std::uint64_t low = std::uint64_t{hash} << (8 * count - 8) << 8 | first;
    return Pair(std::uint64_t{hash} >> (64 - 8 * count), low);
}

// More than 8 bytes, of which `words` full words are the last. Inlined with a constant number of
// words, this has no loop and no address computation.
[[gnu::always_inline]] inline std::uint32_t FewWords(std::uint32_t hash, const char* bytes,
                                                     std::size_t count, std::size_t words,
                                                     const Constants& constants) {
    const std::size_t before = count - 8 * words;
    const __m128i sum =
        TimesPair(FirstBytes(hash, bytes, before), LoadPair(constants.Of(words + 2)));
    return DivideFully(constants,
                       _mm_xor_si128(sum, SumOfPairs(bytes + before, words, constants.Of(words))));
}

// More than 8 bytes and less than a piece.
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

// Inlined: the shortest strings take less time than a call.
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

}  // namespace vantry_internal
