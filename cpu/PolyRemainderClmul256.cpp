#include "cpu/PolyRemainderClmul.h"

namespace vantry_internal {

namespace {

struct Vector {
    static constexpr std::size_t words = 4;

    static Vector Load(const char* bytes) {
        const __m256i order =
            _mm256_broadcastsi128_si256(Pair(0x0001020304050607, 0x08090a0b0c0d0e0f));
        return {_mm256_shuffle_epi8(LoadAll(bytes), order)};
    }
    static Vector Powers(const std::uint64_t* powers) { return {LoadAll(powers)}; }
    static Vector Twice(__m128i powers) { return {_mm256_broadcastsi128_si256(powers)}; }
    static Vector First(__m128i pair) { return {_mm256_zextsi128_si256(pair)}; }

    friend Vector operator^(Vector left, Vector right) {
        return {_mm256_xor_si256(left.value, right.value)};
    }
    friend Vector Times(Vector factors, Vector powers) {
        return {_mm256_xor_si256(_mm256_clmulepi64_epi128(factors.value, powers.value, 0x01),
                                 _mm256_clmulepi64_epi128(factors.value, powers.value, 0x10))};
    }
    __m128i Sum() const {
        return _mm_xor_si128(_mm256_castsi256_si128(value), _mm256_extracti128_si256(value, 1));
    }

    static __m256i LoadAll(const void* memory) {
        return _mm256_loadu_si256(static_cast<const __m256i*>(memory));
    }

    __m256i value;
};

}  // namespace

std::uint32_t SharedRemainder256(std::uint32_t hash, const char* bytes, std::size_t count) {
    return Remainder<Vector>(hash, bytes, count, sharedConstants);
}

std::uint32_t AnyRemainder256(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                              std::size_t count) {
    return RemainderOfAny<Vector>(polynomial, hash, bytes, count);
}

}  // namespace vantry_internal
