#include "tools/common/PrintableText.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vantry_tools {

// Above all characters.
static constexpr std::uint32_t noCharacter = 0xffffffff;

static constexpr std::size_t longestCharacter = 4;  // bytes in UTF-8

// Control, format and invisible characters: a terminal obeys them or shows nothing.
static constexpr std::pair<std::uint32_t, std::uint32_t> unprintable[] = {
    {0x0000, 0x001f}, {0x007f, 0x009f},   {0x00ad, 0x00ad},       {0x034f, 0x034f},
    {0x061c, 0x061c}, {0x115f, 0x1160},   {0x17b4, 0x17b5},       {0x180b, 0x180f},
    {0x200b, 0x200f}, {0x2028, 0x202e},   {0x2060, 0x206f},       {0x3164, 0x3164},
    {0xd800, 0xdfff}, {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},       {0xffa0, 0xffa0},
    {0xfff0, 0xfffb}, {0xe0000, 0xe0fff}, {0x110000, noCharacter}};

static bool IsPrintable(std::uint32_t character) {
    return std::none_of(std::begin(unprintable), std::end(unprintable), [=](const auto& range) {
        return character >= range.first && character <= range.second;
    });
}

// The bytes of a character by its first byte; 1 for a byte that starts none.
static std::size_t CharacterLength(unsigned char first) {
    return first < 0xc2 || first > 0xf4 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
}

// Decodes the first character of `text`. @return its length in bytes; 1 if it is invalid
static std::size_t TakeCharacter(std::string_view text, std::uint32_t& character) {
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const std::uint32_t first = byte(0);
    character = first < 0x80 ? first : noCharacter;
    const std::size_t length = CharacterLength(byte(0));
    if (length == 1 || text.size() < length) {
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

std::string PrintableText(std::string_view text, std::string_view also, std::string_view keep) {
    const auto in = [](std::string_view set, char byte) {
        return set.find(byte) != std::string_view::npos;
    };
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        std::uint32_t character = 0;
        const std::size_t length = TakeCharacter(text, character);
        if ((IsPrintable(character) || in(keep, text[0])) && !in(also, text[0])) {
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

// How many bytes at the end of `text` start a character that is not complete.
static std::size_t IncompleteTail(std::string_view text) {
    for (std::size_t tail = 1; tail < longestCharacter && tail <= text.size(); ++tail) {
        const auto byte = static_cast<unsigned char>(text[text.size() - tail]);
        if ((byte & 0xc0) != 0x80) {
            return CharacterLength(byte) > tail ? tail : 0;
        }
    }
    return 0;
}

static std::string PrintableLines(std::string_view text) {
    return PrintableText(text, {}, "\n\t");
}

std::string PrintableStream::Next(std::string_view piece) {
    held.append(piece);
    const std::size_t complete = held.size() - IncompleteTail(held);
    std::string text = PrintableLines(std::string_view(held).substr(0, complete));
    held.erase(0, complete);
    return text;
}

std::string PrintableStream::End() {
    return PrintableLines(std::exchange(held, {}));
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        std::uint32_t character = 0;
        text.remove_prefix(TakeCharacter(text, character));
        if (character > 0x10ffff || (character >= 0xd800 && character <= 0xdfff)) {
            return false;
        }
    }
    return true;
}

}  // namespace vantry_tools
