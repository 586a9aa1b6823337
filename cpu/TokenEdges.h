#pragma once

#include <cstddef>
#include <cstdint>

#include "cpu/ByteSet.h"

namespace vantry_internal {

/// The edges of a text are its transitions between separators and tokens; the text counts as
/// preceded by separators. So edges are alternately the start and the end of a token.
///
/// Both functions accept a piece of a text. `inToken` is whether the byte before the piece is part
/// of a token, and is set to whether the last byte of the piece is.
struct TokenEdges {
    /// Writes the edges of a piece, each as its position + `offset`, and returns their number.
    /// `edges` has room for `count` + edgesSlack.
    std::size_t (*find)(const ByteSet& separators, const char* piece, std::size_t count,
                        std::uint32_t offset, bool& inToken, std::uint32_t* edges);
    /// Returns the number of edges.
    std::size_t (*count)(const ByteSet& separators, const char* piece, std::size_t count,
                         bool& inToken);
};

/// Number of edges that `find` may write beyond those it reports.
inline constexpr std::size_t edgesSlack = 64;

/// Returns the fastest kernel of the GetCpuLevel().
const TokenEdges& GetTokenEdges();

/// The kernels, one per CpuLevel.
extern const TokenEdges tokenEdgesGeneric;
extern const TokenEdges tokenEdges128;
extern const TokenEdges tokenEdges256;
extern const TokenEdges tokenEdges512;

}  // namespace vantry_internal
