#pragma once

#include <cstdint>
#include <vector>

#include "basekit/qtString.h"

// Plain ways to what the library does fast.

/// The tokens of a text, by one character after the other.
template <class String, class IsSeparator>
std::vector<String> Walk(const String& text, const IsSeparator& isSeparator) {
    std::vector<String> tokens;
    bool inToken = false;
    for (const auto c : text) {
        const bool separator = isSeparator(c);
        if (!separator && !inToken) {
            tokens.emplace_back();
        }
        if (!separator) {
            tokens.back() += c;
        }
        inToken = !separator;
    }
    return tokens;
}

/// The remainder by `polynomial`, by the division of one bit after the other.
inline std::uint32_t Divide(int degree, std::uint32_t polynomial, std::uint32_t remainder,
                            const qtString& bytes) {
    const std::uint32_t mask = 0xFFFFFFFFu >> (32 - degree);
    remainder &= mask;
    for (const char c : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool overflows = (remainder >> (degree - 1) & 1) != 0;
            remainder = (remainder << 1 & mask) | (static_cast<unsigned char>(c) >> bit & 1u);
            remainder ^= overflows ? polynomial & mask : 0;
        }
    }
    return remainder;
}
