#pragma once

// Finds the edges of a text in blocks of 64 bytes. Each file that includes this is compiled for
// processors with certain vectors and defines a Block with
//
//     Block(separators)
//     Separators(bytes)            bit i is set if byte i is a separator
//     Write(mask, offset, edges)   writes offset + i for each set bit i, returns the end

#include <cstring>

#include "cpu/TokenEdges.h"

namespace vantry_internal {

namespace {

// Calls visit(mask, position) with the edges of each block.
template <class Block, class Visit>
void VisitBlocks(const ByteSet& separators, const char* piece, std::size_t count, bool& inToken,
                 const Visit& visit) {
    const Block block(separators);
    std::uint64_t before = inToken ? 0 : 1;
    const auto edges = [&before](std::uint64_t separated) {
        const std::uint64_t mask = separated ^ (separated << 1 | before);
        before = separated >> 63;
        return mask;
    };
    std::size_t position = 0;
    for (; position + 64 <= count; position += 64) {
        visit(edges(block.Separators(piece + position)), position);
    }
    if (const std::size_t rest = count - position; rest != 0) {
        char bytes[64] = {};
        std::memcpy(bytes, piece + position, rest);
        const std::uint64_t inside = (std::uint64_t{1} << rest) - 1;
        const std::uint64_t separated = block.Separators(bytes);
        visit(edges(separated) & inside, position);
        before = separated >> (rest - 1) & 1;
    }
    inToken = before == 0;
}

template <class Block>
std::size_t FindEdges(const ByteSet& separators, const char* piece, std::size_t count,
                      std::uint32_t offset, bool& inToken, std::uint32_t* edges) {
    std::uint32_t* next = edges;
    VisitBlocks<Block>(separators, piece, count, inToken,
                       [&](std::uint64_t mask, std::size_t position) {
                           const auto at = offset + static_cast<std::uint32_t>(position);
                           next = Block::Write(mask, at, next);
                       });
    return static_cast<std::size_t>(next - edges);
}

template <class Block>
std::size_t CountEdges(const ByteSet& separators, const char* piece, std::size_t count,
                       bool& inToken) {
    std::size_t sum = 0;
    VisitBlocks<Block>(separators, piece, count, inToken, [&](std::uint64_t mask, std::size_t) {
        sum += static_cast<std::size_t>(__builtin_popcountll(mask));
    });
    return sum;
}

template <class Block>
constexpr TokenEdges blockEdges = {FindEdges<Block>, CountEdges<Block>};

// Writes eight positions at a time: a few superfluous ones cost less than a branch for each.
inline std::uint32_t* WriteBits(std::uint64_t mask, std::uint32_t offset, std::uint32_t* edges) {
    const int count = __builtin_popcountll(mask);
    for (int done = 0; done < count; done += 8) {
        for (int i = done; i < done + 8; ++i) {
            // The highest bit avoids an undefined count for an empty mask.
            const auto position = __builtin_ctzll(mask | std::uint64_t{1} << 63);
            edges[i] = offset + static_cast<std::uint32_t>(position);
            mask &= mask - 1;
        }
    }
    return edges + count;
}

}  // namespace

}  // namespace vantry_internal
