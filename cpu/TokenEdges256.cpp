#include "cpu/Intrinsics.h"
#include "cpu/TokenEdgesBlocks.h"

namespace vantry_internal {

namespace {

struct Block {
    explicit Block(const ByteSet& separators)
        : low(Twice(separators.half[0])), high(Twice(separators.half[1])) {}

    std::uint64_t Separators(const char* bytes) const {
        return ~(Others(bytes) | std::uint64_t{Others(bytes + 32)} << 32);
    }

    static std::uint32_t* Write(std::uint64_t mask, std::uint32_t offset, std::uint32_t* edges) {
        return WriteBits(mask, offset, edges);
    }

private:
    static __m256i Twice(const void* half) {
        return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(half)));
    }

    unsigned int Others(const char* memory) const {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(memory));
        // A lookup uses the lowest four bits of a byte and returns 0 if the highest bit is set.
        const __m256i index = _mm256_and_si256(bytes, _mm256_set1_epi8(static_cast<char>(0x8F)));
        const __m256i otherHalf =
            _mm256_xor_si256(index, _mm256_set1_epi8(static_cast<char>(0x80)));
        const __m256i sets =
            _mm256_or_si256(_mm256_shuffle_epi8(low, index), _mm256_shuffle_epi8(high, otherHalf));
        const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), _mm256_set1_epi8(0x0F));
        const __m256i bits = _mm256_shuffle_epi8(
            _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201)), upper);
        const __m256i none =
            _mm256_cmpeq_epi8(_mm256_and_si256(sets, bits), _mm256_setzero_si256());
        return static_cast<unsigned int>(_mm256_movemask_epi8(none));
    }

    __m256i low;
    __m256i high;
};

}  // namespace

const TokenEdges tokenEdges256 = blockEdges<Block>;

}  // namespace vantry_internal
