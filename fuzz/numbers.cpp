// Packed integers, and the hash, against arithmetic bit by bit.
#include "QtInclude/Poly_Hash.h"
#include "fuzz/Fuzz.h"
#include "hpack/qtPackDiet.h"
#include "tests/support/Judges.h"

template <class T>
static void Pack(unsigned long long bits) {
    char packed[8] = {};
    const T value = static_cast<T>(bits);
    const int size = qtPackUssDiet(value, packed);
    REQUIRE(size == qtGetPackedSizeDiet(value));
    for (int bit = 0; bit < 8 * size; ++bit) {
        const int byte = static_cast<unsigned char>(packed[size - 1 - bit / 8]);
        const bool set = bit < 8 * static_cast<int>(sizeof(T)) &&
                         (static_cast<unsigned long long>(value) >> bit & 1) != 0;
        REQUIRE((byte >> bit % 8 & 1) == set);
    }
    T back;
    REQUIRE(qtUnpackUssDiet(back, packed) == size && back == value);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const auto bits = input.ConsumeIntegral<unsigned long long>();
    Pack<bool>(bits);
    Pack<char>(bits);
    Pack<unsigned char>(bits);
    Pack<short>(bits);
    Pack<unsigned short>(bits);
    Pack<int>(bits);
    Pack<unsigned int>(bits);
    Pack<long>(bits);
    Pack<unsigned long>(bits);
    Pack<long long>(bits);

    const int degree = input.ConsumeIntegralInRange(8, 32);
    const auto polynomial = input.ConsumeIntegral<unsigned int>();
    const auto start = input.ConsumeIntegral<unsigned int>();
    const auto cut = input.ConsumeIntegral<unsigned short>();
    const qtString text(input.ConsumeRemainingBytesAsString());
    Poly_Hash<32> hash;
    hash.Init(degree, polynomial, start);
    const unsigned int expected = Divide(degree, polynomial, start, text);
    REQUIRE(hash.Hash(text) == expected);
    const std::size_t half = cut % (text.size() + 1);
    REQUIRE(hash.Extend(hash.Hash(text.data(), half), text.data() + half, text.size() - half) ==
            expected);
    return 0;
}
