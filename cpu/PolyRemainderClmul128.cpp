#include "cpu/PolyRemainderClmul.h"

namespace vantry_internal {

namespace {

struct Vector {
    static constexpr std::size_t words = 2;

    static Vector Load(const char* bytes) { return {FirstByteOnTop(LoadPair(bytes))}; }
    static Vector Powers(const std::uint64_t* powers) { return {LoadPair(powers)}; }
    static Vector Twice(__m128i powers) { return {powers}; }
    static Vector First(__m128i pair) { return {pair}; }

    friend Vector operator^(Vector left, Vector right) {
        return {_mm_xor_si128(left.value, right.value)};
    }
    friend Vector Times(Vector factors, Vector powers) {
        return {TimesPair(factors.value, powers.value)};
    }
    __m128i Sum() const { return value; }

    __m128i value;
};

}  // namespace

std::uint32_t SharedRemainder128(std::uint32_t hash, const char* bytes, std::size_t count) {
    return Remainder<Vector>(hash, bytes, count, sharedConstants);
}

std::uint32_t AnyRemainder128(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                              std::size_t count) {
    return RemainderOfAny<Vector>(polynomial, hash, bytes, count);
}

}  // namespace vantry_internal
