#pragma once

#include <vector>

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
