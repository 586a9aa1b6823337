#include "tools/common/KeyText.h"

#include <fnmatch.h>

#include <algorithm>

#include "tools/common/Failures.h"
#include "tools/common/PrintableText.h"

namespace vantry_tools {

bool NeedsQuotes(std::string_view key) {
    // A reader would not see spaces at the ends.
    return key.empty() || key.front() == '"' || key.front() == ' ' || key.back() == ' ' ||
           PrintableText(key) != key;
}

std::string QuoteKey(std::string_view key) {
    return NeedsQuotes(key) ? '"' + PrintableText(key, "\"\\") + '"' : std::string(key);
}

static unsigned int HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned int>(digit - '0');
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned int>(lower - 'a' + 10) : 16;
}

// Decodes the escape at the front, without its backslash, and removes it. @return false if it is
// unknown
static bool TakeEscape(std::string_view& text, char& byte) {
    if (text.empty()) {
        return false;
    }
    const char kind = text[0];
    if (kind == 'x') {
        if (text.size() < 3 || HexDigit(text[1]) > 15 || HexDigit(text[2]) > 15) {
            return false;
        }
        byte = static_cast<char>(HexDigit(text[1]) << 4 | HexDigit(text[2]));
        text.remove_prefix(3);
        return true;
    }
    constexpr std::string_view kinds = "nrt\"\\";
    constexpr std::string_view bytes = "\n\r\t\"\\";
    const std::size_t which = kinds.find(kind);
    if (which == std::string_view::npos) {
        return false;
    }
    byte = bytes[which];
    text.remove_prefix(1);
    return true;
}

std::string UnquoteKey(std::string_view text) {
    if (text.empty() || text.front() != '"') {
        return std::string(text);
    }
    std::string key;
    std::string_view rest = text.substr(1);
    while (!rest.empty() && rest.front() != '"') {
        char byte = rest.front();
        rest.remove_prefix(1);
        if (byte == '\\' && !TakeEscape(rest, byte)) {
            throw UsageFailure("bad escape in key " + std::string(text) +
                               ": \\n, \\r, \\t, \\\", \\\\ and \\xHH are known");
        }
        key += byte;
    }
    if (rest != "\"") {
        throw UsageFailure("a key that begins with a quote must end with one: " +
                           std::string(text));
    }
    return key;
}

bool MatchesGlob(const std::string& glob, std::string key) {
    // fnmatch() ends at a NUL. A pattern cannot contain one, so any other byte will do.
    std::replace(key.begin(), key.end(), '\0', '\1');
    return fnmatch(glob.c_str(), key.c_str(), 0) == 0;
}

}  // namespace vantry_tools
