#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>

/// A set of bytes, laid out for vector look-ups: bit (b >> 4) % 8 of half[b >> 7][b % 16] says
/// whether b is in it.
struct alignas(16) ByteSet {
    std::uint8_t half[2][16] = {};

    void Add(char c) {
        const auto b = static_cast<unsigned char>(c);
        half[b >> 7][b % 16] = static_cast<std::uint8_t>(half[b >> 7][b % 16] | 1u << (b >> 4) % 8);
    }

    bool Has(std::size_t b) const { return (half[b >> 7][b % 16] >> (b >> 4) % 8 & 1) != 0; }

    /// The ASCII characters that isspace() of the current locale accepts. This reads the table
    /// behind isspace(), because 128 calls would take longer than splitting a line.
    static ByteSet AsciiWhiteSpace() {
        static_assert(_ISspace >= 0x80 && _ISspace <= 0xFFFF, "eight bits fit to its right");
        const unsigned short* const classes = *__ctype_b_loc();
        // The bit of the lowest row moves right until the eight rows lie beside each other.
        std::uint16_t columns[16] = {};
        for (std::size_t row = 0; row < 8; ++row) {
            for (std::size_t low = 0; low < 16; ++low) {
                columns[low] = static_cast<std::uint16_t>(columns[low] >> 1 |
                                                          (classes[16 * row + low] & _ISspace));
            }
        }
        ByteSet set;
        for (std::size_t low = 0; low < 16; ++low) {
            set.half[0][low] = static_cast<std::uint8_t>(columns[low] / (_ISspace >> 7));
        }
        return set;
    }
};
