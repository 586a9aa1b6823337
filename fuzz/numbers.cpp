// Packed integers, and the hash, against arithmetic bit by bit.
#include "QtInclude/Poly_Hash.h"
#include "fuzz/Fuzz.h"
#include "hpack/qtPackDiet.h"
#include "lpstring/LpStringHash.h"

// The remainder by `polynomial`, by the division of one bit after the other.
static std::uint32_t Divide(int degree, std::uint32_t polynomial, std::uint32_t remainder,
                            const qtString& bytes) {
    const std::uint32_t mask = 0xFFFFFFFFu >> (32 - degree);
    remainder &= mask;
    for (const char c : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool overflows = (remainder >> (degree - 1) & 1) != 0;
            remainder = (remainder << 1 & mask) | (static_cast<unsigned char>(c) >> bit & 1u);
            remainder ^= overflows ? polynomial & mask : 0;
        }
    }
    return remainder;
}

template <class... T>
static void Pack(unsigned long long bits) {
    const auto pack = [bits](auto value) {
        using Value = decltype(value);
        char packed[9] = {};
        value = static_cast<Value>(bits);
        const int size = qtPackUssDiet(value, packed);
        REQUIRE(size == qtGetPackedSizeDiet(value) && packed[size] == 0);
        for (int bit = 0; bit < 8 * size; ++bit) {
            const int byte = static_cast<unsigned char>(packed[size - 1 - bit / 8]);
            const bool set = bit < 8 * static_cast<int>(sizeof value) &&
                             (static_cast<unsigned long long>(value) >> bit & 1) != 0;
            REQUIRE((byte >> bit % 8 & 1) == set);
        }
        Value back;
        REQUIRE(qtUnpackUssDiet(back, packed) == size && back == value);
    };
    (pack(T()), ...);
    bool flag = false;
    qtUnpackUssDiet(flag, "\x80");
    REQUIRE(flag);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const unsigned int polynomial = input();
    const unsigned int start = input();
    Pack<bool, char, unsigned char, short, unsigned short, int, unsigned int, long, unsigned long,
         long long>(static_cast<unsigned long long>(polynomial) << 32 | start);

    const int degree = 8 + static_cast<int>(input() % 25);
    const unsigned int cut = input();
    const qtString text = input.rest;  // memory of its own, for the sanitizer to see its end
    const std::size_t half = cut % (text.size() + 1);
    const auto divides = [&](const Poly_Hash<32>& hash, unsigned int terms) {
        const unsigned int expected = Divide(hash.Degree(), terms, start, text);
        REQUIRE(hash.Extend(start, text.data(), text.size()) == expected);
        const unsigned int first = ~hash.Mask() | hash.Extend(start, text.data(), half);
        REQUIRE(hash.Extend(first, text.data() + half, text.size() - half) == expected);
    };
    divides(LpStringHash::s_polyHash, 0xc0000401);
    for (const unsigned int terms : {polynomial, Hash_primitive_seed[degree]}) {
        Poly_Hash<32> hash;
        hash.Init(degree, terms, start);
        divides(hash, terms);
        REQUIRE(hash.Hash(text) == hash.Extend(start, text.data(), text.size()));
        REQUIRE(hash.Hash(text.data(), half) == hash.Extend(start, text.data(), half));
    }
    return 0;
}
