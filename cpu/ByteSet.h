#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>

namespace vantry_internal {

/// A set of bytes, laid out for vector lookups: bit (b >> 4) % 8 of half[b >> 7][b % 16] is set if
/// b is in the set.
struct alignas(16) ByteSet {
    std::uint8_t half[2][16] = {};

    void Add(char c) {
        const auto b = static_cast<unsigned char>(c);
        half[b >> 7][b % 16] = static_cast<std::uint8_t>(half[b >> 7][b % 16] | 1u << (b >> 4) % 8);
    }

    bool Has(std::size_t b) const { return (half[b >> 7][b % 16] >> (b >> 4) % 8 & 1) != 0; }

    /// Returns the ASCII characters that isspace() of the current locale accepts. Reads the C
    /// library's table directly: 128 calls of isspace() would take longer than splitting a line.
    static ByteSet AsciiWhiteSpace() {
        constexpr unsigned toHighest = 0x8000 / _ISspace;  // the bit depends on the byte order
        const unsigned short* const classes = *__ctype_b_loc();
        // Shifting in one row at a time collects the bits of eight rows in a column's upper byte.
        std::uint16_t columns[16] = {};
        for (std::size_t row = 0; row < 8; ++row) {
            for (std::size_t low = 0; low < 16; ++low) {
                const unsigned bit = (classes[16 * row + low] & _ISspace) * toHighest;
                columns[low] = static_cast<std::uint16_t>(columns[low] >> 1 | bit);
            }
        }
        ByteSet set;
        for (std::size_t low = 0; low < 16; ++low) {
            set.half[0][low] = static_cast<std::uint8_t>(columns[low] >> 8);
        }
        return set;
    }
};

}  // namespace vantry_internal
