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
        constexpr unsigned toHighest = 0x8000 / _ISspace;  // where the class's bit is differs
        const unsigned short* const classes = *__ctype_b_loc();
        // Each row's bit moves right as others come in behind it, until eight lie side by side.
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
