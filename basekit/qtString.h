#pragma once

#include <string>
#include <utility>

#include "basekit/Export.h"

/// A narrow byte string with value semantics. It is a standard string by another name: any byte
/// may occur in it, NUL included, and it converts from and to std::string without ceremony.
class qtString : public std::string {
public:
    using std::string::string;
    qtString() = default;
    /// From a standard string, which it copies or takes over.
    /// @{
    qtString(const std::string& text) : std::string(text) {}
    qtString(std::string&& text) noexcept : std::string(std::move(text)) {}
    /// @}

    /// Removes white space (blank, `\t`, `\n`, `\v`, `\f`, `\r`, in every locale) from both ends,
    /// in place.
    VANTRY_EXPORT void TrimWhiteSpace();
};

/// The wide counterpart of qtString.
class qtWString : public std::wstring {
public:
    using std::wstring::wstring;
    qtWString() = default;
    /// From a standard string, which it copies or takes over.
    /// @{
    qtWString(const std::wstring& text) : std::wstring(text) {}
    qtWString(std::wstring&& text) noexcept : std::wstring(std::move(text)) {}
    /// @}
};
