#include "tools/common/KeyText.h"

#include <algorithm>
#include <cstdint>

#include "tools/common/Failures.h"

// No text can have more.
static constexpr std::uint32_t noCharacter = 0xffffffff;

// Control characters, line and paragraph separators, and what turns the direction of writing.
static bool IsPrintable(std::uint32_t character) {
    const auto in = [character](std::uint32_t first, std::uint32_t last) {
        return character >= first && character <= last;
    };
    return character >= 0x20 && !in(0x7f, 0x9f) && !in(0x200e, 0x200f) && !in(0x2028, 0x202e) &&
           !in(0x2066, 0x2069) && !in(0xd800, 0xdfff) && character <= 0x10ffff;
}

// Takes the character that `text` starts with. @return its length in bytes; 1 when it is none
static std::size_t TakeCharacter(std::string_view text, std::uint32_t& character) {
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::uint32_t first = byte(0);
    character = first < 0x80 ? first : noCharacter;
    const std::size_t length = first < 0xc2 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    if (length == 1 || first > 0xf4 || text.size() < length) {
        return 1;
    }
    std::uint32_t value = first & (0xffU >> (length + 1));
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xc0) != 0x80) {
            return 1;
        }
        value = value << 6 | (byte(at) & 0x3fU);
    }
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length]) {
        return 1;
    }
    character = value;
    return length;
}

static void AppendEscape(std::string& out, unsigned char byte) {
    constexpr char digits[] = "0123456789abcdef";
    switch (byte) {
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        case '"':
        case '\\':
            out += '\\';
            out += static_cast<char>(byte);
            return;
        default:
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 15];
    }
}

// Escapes what is not printable, and the characters of `also`.
static std::string Escape(std::string_view text, std::string_view also) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        std::uint32_t character = 0;
        const std::size_t length = TakeCharacter(text, character);
        if (IsPrintable(character) && also.find(text[0]) == std::string_view::npos) {
            out.append(text, 0, length);
        } else {
            for (const char byte : text.substr(0, length)) {
                AppendEscape(out, static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(length);
    }
    return out;
}

std::string PrintableText(std::string_view text) {
    return Escape(text, {});
}

bool NeedsQuotes(std::string_view key) {
    // Blanks at the ends would be lost on the reader.
    return key.empty() || key.front() == '"' || key.front() == ' ' || key.back() == ' ' ||
           PrintableText(key) != key;
}

std::string QuoteKey(std::string_view key) {
    return NeedsQuotes(key) ? '"' + Escape(key, "\"\\") + '"' : std::string(key);
}

static unsigned int HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned int>(digit - '0');
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned int>(lower - 'a' + 10) : 16;
}

// Takes one escape, whose backslash is gone, from the front. @return false when it is none
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
