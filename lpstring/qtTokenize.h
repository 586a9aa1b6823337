#pragma once

/// @file
/// A tokenizer that copies.

#include <vector>

#include "basekit/qtString.h"

/// Splits a text into copies of its maximal runs of bytes that are not in `separators`; empty
/// tokens never appear:
///
///     std::vector<qtString> lines;
///     qtTokenize("one\ntwo\r\n", lines, "\r\n");  // one  two
///
/// Both texts end at their first NUL, whatever their length says. With no separators the text is
/// one token, or none if it is empty. `tokens` is replaced; neither text may be one of its
/// elements. The cost does not grow with the number of separators.
///
/// @throws std::bad_alloc when there is no memory; `tokens` then holds the tokens found so far.
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
