#include "cpu/Intrinsics.h"
#include "cpu/TokenEdgesBlocks.h"

namespace vantry_internal {

namespace {

struct alignas(64) Positions {
    unsigned char position[64];

    constexpr Positions() : position() {
        for (unsigned char i = 0; i < 64; ++i) {
            position[i] = i;
        }
    }
};

constexpr Positions positions;

struct Block {
    explicit Block(const ByteSet& separators)
        : low(FourTimes(separators.half[0])), high(FourTimes(separators.half[1])) {}

    std::uint64_t Separators(const char* memory) const {
        const __m512i bytes = _mm512_loadu_si512(memory);
        // A lookup uses the lowest four bits of a byte and returns 0 if the highest bit is set.
        const __m512i index = _mm512_and_si512(bytes, _mm512_set1_epi8(static_cast<char>(0x8F)));
        const __m512i otherHalf =
            _mm512_xor_si512(index, _mm512_set1_epi8(static_cast<char>(0x80)));
        const __m512i sets =
            _mm512_or_si512(_mm512_shuffle_epi8(low, index), _mm512_shuffle_epi8(high, otherHalf));
        const __m512i upper = _mm512_and_si512(_mm512_srli_epi16(bytes, 4), _mm512_set1_epi8(0x0F));
        const __m512i bits = _mm512_shuffle_epi8(
            _mm512_set1_epi64(static_cast<long long>(0x8040201008040201)), upper);
        return _mm512_test_epi8_mask(sets, bits);
    }

    static std::uint32_t* Write(std::uint64_t mask, std::uint32_t offset, std::uint32_t* edges) {
        const __m512i packed =
            _mm512_maskz_compress_epi8(mask, _mm512_load_si512(positions.position));
        const int count = __builtin_popcountll(mask);
        Write16(_mm512_castsi512_si128(packed), offset, edges);
        if (count > 16) {
            Write16(_mm512_extracti32x4_epi32(packed, 1), offset, edges + 16);
        }
        if (count > 32) {
            Write16(_mm512_extracti32x4_epi32(packed, 2), offset, edges + 32);
            Write16(_mm512_extracti32x4_epi32(packed, 3), offset, edges + 48);
        }
        return edges + count;
    }

private:
    static __m512i FourTimes(const void* half) {
        return _mm512_broadcast_i32x4(_mm_loadu_si128(static_cast<const __m128i*>(half)));
    }

    static void Write16(__m128i from, std::uint32_t offset, std::uint32_t* edges) {
        _mm512_storeu_si512(edges, _mm512_add_epi32(_mm512_cvtepu8_epi32(from),
                                                    _mm512_set1_epi32(static_cast<int>(offset))));
    }

    __m512i low;
    __m512i high;
};

}  // namespace

const TokenEdges tokenEdges512 = blockEdges<Block>;

}  // namespace vantry_internal
