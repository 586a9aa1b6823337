#include "cpu/Intrinsics.h"
#include "cpu/TokenEdgesBlocks.h"

namespace vantry_internal {

namespace {

struct Block {
    explicit Block(const ByteSet& separators)
        : low(Load(separators.half[0])), high(Load(separators.half[1])) {}

    std::uint64_t Separators(const char* bytes) const {
        std::uint64_t others = 0;
        for (unsigned int i = 0; i < 64; i += 16) {
            others |= std::uint64_t{Others(Load(bytes + i))} << i;
        }
        return ~others;
    }

    static std::uint32_t* Write(std::uint64_t mask, std::uint32_t offset, std::uint32_t* edges) {
        return WriteBits(mask, offset, edges);
    }

private:
    static __m128i Load(const void* memory) {
        return _mm_loadu_si128(static_cast<const __m128i*>(memory));
    }

    unsigned int Others(__m128i bytes) const {
        // A lookup uses the lowest four bits of a byte and returns 0 if the highest bit is set.
        const __m128i index = _mm_and_si128(bytes, _mm_set1_epi8(static_cast<char>(0x8F)));
        const __m128i otherHalf = _mm_xor_si128(index, _mm_set1_epi8(static_cast<char>(0x80)));
        const __m128i sets =
            _mm_or_si128(_mm_shuffle_epi8(low, index), _mm_shuffle_epi8(high, otherHalf));
        const __m128i upper = _mm_and_si128(_mm_srli_epi16(bytes, 4), _mm_set1_epi8(0x0F));
        const __m128i bits =
            _mm_shuffle_epi8(_mm_set1_epi64x(static_cast<long long>(0x8040201008040201)), upper);
        const __m128i none = _mm_cmpeq_epi8(_mm_and_si128(sets, bits), _mm_setzero_si128());
        return static_cast<unsigned int>(_mm_movemask_epi8(none));
    }

    __m128i low;
    __m128i high;
};

}  // namespace

const TokenEdges tokenEdges128 = blockEdges<Block>;

}  // namespace vantry_internal
