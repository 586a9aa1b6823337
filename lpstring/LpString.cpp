#include "lpstring/LpString.h"

#include <cctype>
#include <cwctype>

namespace {

// The source comes by value: it may be an element of the vector that is cleared.
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

}  // namespace

void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens) {
    Split(source, tokens, [](char c) { return isascii(c) != 0 && std::isspace(c) != 0; });
}

void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens, char separator) {
    Split(source, tokens, [separator](char c) { return c == separator; });
}

void LpTokenize(const LpCString& source, std::vector<LpCString>& tokens,
                const qtString& separators) {
    Split(source, tokens, [&](char c) { return separators.find(c) != qtString::npos; });
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
