#include "lpstring/LpString.h"

#include <algorithm>
#include <cwctype>

#include "cpu/TokenEdges.h"

using vantry_internal::ByteSet;
using vantry_internal::edgesSlack;
using vantry_internal::GetTokenEdges;
using vantry_internal::TokenEdges;

namespace {

// `source` is a copy, since it may be an element of the vector that is cleared.
template <class View, class IsSeparator>
void Split(const View source, std::vector<View>& tokens, const IsSeparator& isSeparator) {
    tokens.clear();
    const auto* const data = source.Data();
    const std::uint32_t length = source.Length();
    for (std::uint32_t i = 0;;) {
        while (i < length && isSeparator(data[i])) {
            ++i;
        }
        if (i == length) {
            return;
        }
        const std::uint32_t start = i;
        while (i < length && !isSeparator(data[i])) {
            ++i;
        }
        tokens.emplace_back(data + start, i - start);
    }
}

// Works piece by piece, so that the edges of a piece stay in the cache until they become tokens.
void SplitBytes(const LpCString source, std::vector<LpCString>& tokens, const ByteSet& separators) {
    constexpr std::uint32_t pieceBytes = 2048;
    std::uint32_t edges[1 + pieceBytes + edgesSlack];
    std::size_t open = 0;  // 1 if edges[0] is the start of a token without its end
    bool inToken = false;
    const TokenEdges& kernel = GetTokenEdges();

    tokens.clear();
    for (std::uint32_t position = 0; position < source.Length();) {
        const char* const piece = source.Data() + position;
        const std::uint32_t count = std::min(source.Length() - position, pieceBytes);
        std::size_t found =
            open + kernel.find(separators, piece, count, position, inToken, edges + open);
        position += count;
        const std::uint32_t rest = source.Length() - position;
        if (rest == 0 && inToken) {
            edges[found++] = source.Length();
        }
        // The vector grows at most once.
        if (tokens.capacity() - tokens.size() < found / 2) {
            bool inTokenThen = inToken;
            const std::size_t later = kernel.count(separators, piece + count, rest, inTokenThen);
            tokens.reserve(tokens.size() + (found + later + 1) / 2);
        }
        for (std::size_t i = 0; i + 1 < found; i += 2) {
            tokens.emplace_back(source.Data() + edges[i], edges[i + 1] - edges[i]);
        }
        open = found % 2;
        edges[0] = edges[found - open];
    }
}

}  // namespace

void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens) {
    SplitBytes(source, tokens, ByteSet::AsciiWhiteSpace());
}

void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens, char separator) {
    ByteSet separators;
    separators.Add(separator);
    SplitBytes(source, tokens, separators);
}

void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens,
                const qtString& separators) {
    ByteSet set;
    for (const char c : separators) {
        set.Add(c);
    }
    SplitBytes(source, tokens, set);
}

void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens) {
    Split(source, tokens,
          [](wchar_t c) { return std::iswspace(static_cast<std::wint_t>(c)) != 0; });
}

void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens, wchar_t separator) {
    Split(source, tokens, [separator](wchar_t c) { return c == separator; });
}

void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens,
                const qtWString& separators) {
    Split(source, tokens, [&](wchar_t c) { return separators.find(c) != qtWString::npos; });
}
