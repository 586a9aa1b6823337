#include "cpu/TokenEdges.h"

#include "cpu/CpuLevel.h"
#include "cpu/TokenEdgesBlocks.h"

namespace vantry_internal {

namespace {

struct Block {
    explicit Block(const ByteSet& separators) {
        for (std::size_t high = 0; high < 16; ++high) {
            for (std::size_t low = 0; low < 16; ++low) {
                isSeparator[16 * high + low] = separators.half[high / 8][low] >> high % 8 & 1;
            }
        }
    }

    std::uint64_t Separators(const char* bytes) const {
        std::uint64_t mask = 0;
        for (std::size_t i = 0; i < 64; ++i) {
            mask |= std::uint64_t{isSeparator[static_cast<unsigned char>(bytes[i])]} << i;
        }
        return mask;
    }

    static std::uint32_t* Write(std::uint64_t mask, std::uint32_t offset, std::uint32_t* edges) {
        return WriteBits(mask, offset, edges);
    }

    std::uint8_t isSeparator[256];
};

}  // namespace

const TokenEdges tokenEdgesGeneric = blockEdges<Block>;

const TokenEdges& GetTokenEdges() {
    static constexpr const TokenEdges* kernels[] = {
        &tokenEdgesGeneric,
#if defined(__x86_64__) || defined(__i386__)
        &tokenEdges128,
        &tokenEdges256,
        &tokenEdges512,
#endif
    };
    return *kernels[static_cast<int>(GetCpuLevel())];
}

}  // namespace vantry_internal
