#include "cpu/PolyRemainderClmul.h"

namespace vantry_internal {

namespace {

struct Vector {
    static constexpr std::size_t words = 8;

    static Vector Load(const char* bytes) {
        const __m512i order = _mm512_broadcast_i32x4(Pair(0x0001020304050607, 0x08090a0b0c0d0e0f));
        return {_mm512_shuffle_epi8(_mm512_loadu_si512(bytes), order)};
    }
    static Vector Powers(const std::uint64_t* powers) { return {_mm512_loadu_si512(powers)}; }
    static Vector Twice(__m128i powers) { return {_mm512_broadcast_i32x4(powers)}; }
    static Vector First(__m128i pair) { return {_mm512_zextsi128_si512(pair)}; }

    friend Vector operator^(Vector left, Vector right) {
        return {_mm512_xor_si512(left.value, right.value)};
    }
    friend Vector Times(Vector factors, Vector powers) {
        return {_mm512_xor_si512(_mm512_clmulepi64_epi128(factors.value, powers.value, 0x01),
                                 _mm512_clmulepi64_epi128(factors.value, powers.value, 0x10))};
    }
    __m128i Sum() const {
        const __m256i half =
            _mm256_xor_si256(_mm512_castsi512_si256(value), _mm512_extracti64x4_epi64(value, 1));
        return _mm_xor_si128(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    }

    __m512i value;
};

}  // namespace

std::uint32_t SharedRemainder512(std::uint32_t hash, const char* bytes, std::size_t count) {
    return Remainder<Vector>(hash, bytes, count, sharedConstants);
}

std::uint32_t AnyRemainder512(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                              std::size_t count) {
    return RemainderOfAny<Vector>(polynomial, hash, bytes, count);
}

}  // namespace vantry_internal
