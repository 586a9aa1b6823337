#pragma once

#include <string>
#include <string_view>

namespace vantry_tools {

// Keys are any bytes; terminals, error lines and command lines take text. A key of printable
// characters stands for itself. Any other is shown in quotes, with escapes:
//
//     stdio.h          stdio.h
//     (nothing)        ""
//     "a"              "\"a\""          as does every key that begins with a quote
//     a, line end, b   "a\nb"           \n, \r, \t, \", \\, and \xHH for the rest
//
// Text in UTF-8 is printable, but for control characters and marks that turn the direction of
// writing. What is shown can be given: UnquoteKey(QuoteKey(key)) is the key again.

/// The key as the tools show it; always valid UTF-8.
std::string QuoteKey(std::string_view key);

/// Whether QuoteKey() shows it in quotes.
bool NeedsQuotes(std::string_view key);

/// The key that a text stands for: what is in quotes without them and its escapes, anything else
/// as it is. @throws UsageFailure for a quote that does not end, or an escape that is none
std::string UnquoteKey(std::string_view text);

/// Whether a key matches a pattern of the shell's kind, in which * also matches slashes.
bool MatchesGlob(const std::string& glob, std::string key);

}  // namespace vantry_tools
