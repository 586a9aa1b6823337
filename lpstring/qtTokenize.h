#pragma once

/// @file
/// A tokenizer that copies.

#include <vector>

#include "basekit/qtString.h"

/// Splits a text into copies of its maximal runs of bytes that are not in `separators`. Empty
/// tokens never appear:
///
///     std::vector<qtString> lines;
///     qtTokenize("one\ntwo\r\n", lines, "\r\n");  // one  two
///
/// The cost does not grow with the number of separators.
/// @param source text to split, up to its first NUL
/// @param tokens replaced by the tokens; must not contain `source` or `separators`
/// @param separators bytes that separate, up to the first NUL; with none, the text is one token, or
///        no token if it is empty
/// @throws std::bad_alloc if memory runs out; `tokens` then holds the tokens found so far
inline void qtTokenize(const qtString& source, std::vector<qtString>& tokens,
                       const qtString& separators) {
    bool isSeparator[256] = {};
    for (const char* c = separators.c_str(); *c != '\0'; ++c) {
        isSeparator[static_cast<unsigned char>(*c)] = true;
    }
    tokens.clear();
    for (const char* c = source.c_str();;) {
        while (isSeparator[static_cast<unsigned char>(*c)]) {
            ++c;
        }
        if (*c == '\0') {
            return;
        }
        const char* const start = c;
        while (*c != '\0' && !isSeparator[static_cast<unsigned char>(*c)]) {
            ++c;
        }
        tokens.emplace_back(start, c);
    }
}
