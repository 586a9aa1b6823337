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

/// Base of LpCString and LpWString: a pointer and a length. Does not own its characters; they must
/// outlive the view unchanged. A temporary string would not, so it does not convert to a view.
template <class Char, class String>
class LpView {
public:
    /// Makes an empty view.
    constexpr LpView() = default;
    /// Views `length` characters at `data`. No terminator is needed; NULs are ordinary characters.
    constexpr LpView(const Char* data, std::uint32_t length)
        : characters(data), characterCount(length) {}
    /// Views the characters up to the terminating NUL; a null pointer makes an empty view.
    /// @throws std::length_error if there are 2^32 characters or more
    LpView(const Char* text)
        : LpView(text, Counted(text == nullptr ? 0 : std::char_traits<Char>::length(text))) {}
    /// Views all characters of `text`, NULs included.
    /// @throws std::length_error if there are 2^32 characters or more
    LpView(const std::basic_string<Char>& text) : LpView(text.data(), Counted(text.size())) {}
    /// A view of a temporary string would dangle.
    LpView(const std::basic_string<Char>&& text) = delete;

    /// Returns the first character, or null if the view has none. Not owned.
    constexpr const Char* Data() const { return characters; }
    /// Returns the number of characters.
    constexpr std::uint32_t Length() const { return characterCount; }

    /// Returns a copy that owns its characters.
    /// @throws std::bad_alloc if memory runs out
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

/// A view of narrow characters; copying it copies two fields.
class LpCString : public LpView<char, qtString> {
public:
    using LpView::LpView;
};

/// A view of wide characters; copying it copies two fields.
class LpWString : public LpView<wchar_t, qtWString> {
public:
    using LpView::LpView;
};

/// Splits `source` at white space into its maximal runs of other characters. Empty tokens never
/// appear, and no character is copied:
///
///     const qtString line("alpha, beta;gamma");
///     std::vector<LpCString> tokens;
///     LpTokenize(line, tokens, qtString(",; "));  // alpha  beta  gamma
///     const qtString first = tokens[0].ToString();
///
/// White space is each ASCII character that isspace() of the current locale accepts (blank, `\t`,
/// `\n`, `\v`, `\f`, `\r`, unless the locale has others). Bytes 0x80 to 0xFF never separate. The
/// length of the view governs: NUL is an ordinary character.
///
/// @param source text to split; may be an element of `tokens`
/// @param tokens replaced by the tokens, views of the characters of `source` that are valid as long
///        as those. A vector that is used again keeps its memory.
/// @throws std::bad_alloc if the vector cannot grow; it then holds the tokens found so far
///
/// Calls with different vectors may run in several threads at once.
VANTRY_EXPORT void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens);
/// Splits at the character `separator`; otherwise as above.
VANTRY_EXPORT void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens,
                              char separator);
/// Splits at each character of `separators`, NULs included; otherwise as above. Without separators
/// the source is one token.
VANTRY_EXPORT void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens,
                              const qtString& separators);

/// Splits wide characters at white space: whatever iswspace() of the current locale accepts.
/// Otherwise as the narrow version.
VANTRY_EXPORT void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens);
/// Splits at the character `separator`.
VANTRY_EXPORT void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens,
                              wchar_t separator);
/// Splits at each character of `separators`.
VANTRY_EXPORT void LpTokenize(const LpWString& source, std::vector<LpWString>& tokens,
                              const qtWString& separators);
