#include "tools/common/PrintableText.h"

#include <cstdint>

namespace vantry_tools {

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

std::string PrintableText(std::string_view text, std::string_view also) {
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

}  // namespace vantry_tools
