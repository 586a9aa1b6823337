#pragma once

#include <string>
#include <string_view>

namespace vantry_tools {

// Keys are any bytes, but terminals and command lines are for text. A key of printable characters
// is shown as it is. Any other is shown in quotes, with escapes:
//
//     stdio.h          stdio.h
//     (nothing)        ""
//     "a"              "\"a\""          like every key that starts with a quote
//     a, line end, b   "a\nb"           \n, \r, \t, \", \\, and \xHH for the rest
//
// Text in UTF-8 is printable except for control, invisible and direction characters. What is shown
// can be entered: UnquoteKey(QuoteKey(key)) returns the key.

/// Returns the key as the tools show it; always valid UTF-8.
std::string QuoteKey(std::string_view key);

/// Returns whether QuoteKey() adds quotes.
bool NeedsQuotes(std::string_view key);

/// Returns the key that a text shows: text in quotes is unescaped, other text is the key itself.
/// @throws UsageFailure for a missing end quote or an unknown escape
std::string UnquoteKey(std::string_view text);

/// Returns whether a key matches a shell pattern, in which * also matches slashes.
bool MatchesGlob(const std::string& glob, std::string key);

}  // namespace vantry_tools
