#pragma once

/// @file
/// Views of strings, and tokenizers that return them.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "basekit/Export.h"
#include "basekit/qtString.h"

/// What LpCString and LpWString share: a pointer and a length, no ownership.
template <class Char, class String>
class LpView {
public:
    /// An empty view.
    constexpr LpView() = default;
    /// `length` characters from `data`; no terminator is needed and NULs are ordinary.
    constexpr LpView(const Char* data, std::uint32_t length)
        : characters(data), characterCount(length) {}
    /// Up to the terminating NUL; a null pointer gives an empty view.
    /// @throws std::length_error as below
    LpView(const Char* text)
        : LpView(text, Counted(text == nullptr ? 0 : std::char_traits<Char>::length(text))) {}
    /// The whole text, NULs included. The view is valid while the string lives unchanged.
    /// @throws std::length_error when it has 2^32 characters or more
    LpView(const std::basic_string<Char>& text) : LpView(text.data(), Counted(text.size())) {}

    /// The first character, not owned; null in an empty view that has none.
    constexpr const Char* Data() const { return characters; }
    /// In characters, not in bytes.
    constexpr std::uint32_t Length() const { return characterCount; }

    /// A copy that owns its characters.
    String ToString() const {
        return characterCount == 0 ? String() : String(characters, characterCount);
    }

private:
    static std::uint32_t Counted(std::size_t length) {
        if (length > std::numeric_limits<std::uint32_t>::max()) {
            throw std::length_error("A view holds less than 2^32 characters");
        }
        return static_cast<std::uint32_t>(length);
    }

    const Char* characters = nullptr;
    std::uint32_t characterCount = 0;
};

/// A view of narrow characters that somebody else owns; copying it copies two fields.
class LpCString : public LpView<char, qtString> {
public:
    using LpView::LpView;
};

/// The same over wide characters.
class LpWString : public LpView<wchar_t, qtWString> {
public:
    using LpView::LpView;
};

/// Splits `source` into its maximal runs of characters that are no separators; empty tokens never
/// appear, and no character is copied:
///
///     const qtString line("alpha, beta;gamma");
///     std::vector<LpCString> tokens;
///     LpTokenize(line, tokens, qtString(",; "));  // alpha  beta  gamma
///     const qtString first = tokens[0].ToString();
///
/// `tokens` is replaced. Its views point into the characters of `source` and are valid as long as
/// those are: never split a temporary string. A vector that is used again keeps its memory, and
/// `source` itself may be one of its elements.
///
/// The length of the view governs: NUL is a character like any other. Calls on different vectors
/// may run in several threads at once.
///
/// This one splits at white space: ASCII characters that isspace() of the current locale accepts
/// (blank, `\t`, `\n`, `\v`, `\f`, `\r`, unless the locale has its own). Bytes 0x80 to 0xFF never
/// separate.
///
/// @throws std::bad_alloc when the vector can not grow; it then holds the tokens found so far.
VANTRY_EXPORT void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens);
/// Splits at one character.
VANTRY_EXPORT void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens,
                              char separator);
/// Splits at every character of `separators`, NULs included. With none, the source is one token.
VANTRY_EXPORT void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens,
                              const qtString& separators);

/// The same for wide characters; here white space is what iswspace() of the current locale accepts.
VANTRY_EXPORT void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens);
/// Splits at one character.
VANTRY_EXPORT void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens,
                              wchar_t separator);
/// Splits at every character of `separators`.
VANTRY_EXPORT void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens,
                              const qtWString& separators);
