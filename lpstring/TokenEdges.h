#pragma once

#include <cstddef>
#include <cstdint>

#include "lpstring/ByteSet.h"

/// The edges of a text are the positions at which it goes over from separators to a token or back;
/// before a text there are separators. So edges are, in turn, the start and the end of a token.
///
/// Both functions take a piece of a text; `inToken` says what the byte before it was, and is set to
/// what the last one is.
struct TokenEdges {
    /// Writes the edges of a piece to `edges`, which has room for `count` and edgesSlack more, as
    /// position + `offset`. Returns how many there are.
    std::size_t (*find)(const ByteSet& separators, const char* piece, std::size_t count,
                        std::uint32_t offset, bool& inToken, std::uint32_t* edges);
    /// Only counts them.
    std::size_t (*count)(const ByteSet& separators, const char* piece, std::size_t count,
                         bool& inToken);
};

/// What `find` may write beyond the edges that it reports.
inline constexpr std::size_t edgesSlack = 64;

/// The fastest that the processor allows.
const TokenEdges& GetTokenEdges();

/// One for each CpuLevel.
extern const TokenEdges tokenEdgesGeneric;
extern const TokenEdges tokenEdges128;
extern const TokenEdges tokenEdges256;
extern const TokenEdges tokenEdges512;
