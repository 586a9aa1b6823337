#include "cpu/PolyRemainder.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "cpu/CpuLevel.h"

namespace vantry_internal {
namespace {

// A bit at a time, as the definition says.
std::uint32_t Remainder(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                        std::size_t count) {
    for (std::size_t i = 0; i < 8 * count; ++i) {
        const std::uint32_t bit = static_cast<unsigned char>(bytes[i / 8]) >> (7 - i % 8) & 1;
        hash = (hash << 1 | bit) ^ (hash >> 31 != 0 ? polynomial : 0);
    }
    return hash;
}

TEST(PolyRemainder, EveryKernelFollowsTheDefinition) {
    constexpr SharedRemainder shared[] = {
        SharedRemainderTables,
#if defined(__x86_64__) || defined(__i386__)
        SharedRemainder128,
        SharedRemainder256,
        SharedRemainder512,
#endif
    };
    constexpr AnyRemainder any[] = {
        AnyRemainderTables,
#if defined(__x86_64__) || defined(__i386__)
        AnyRemainder128,
        AnyRemainder256,
        AnyRemainder512,
#endif
    };
    std::mt19937 random(7);
    std::vector<char> bytes(3000);
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    std::vector<std::size_t> counts = {1023, 1024, 1025, 2047, 2048, 2999};
    for (std::size_t count = 0; count < 620; ++count) {
        counts.push_back(count);
    }
    for (const std::size_t count : counts) {
        // A copy of its own, so that a sanitizer notices reads beyond its ends.
        const std::size_t start = count % 7 < bytes.size() - count ? count % 7 : 0;
        const std::vector<char> text(bytes.begin() + static_cast<std::ptrdiff_t>(start),
                                     bytes.begin() + static_cast<std::ptrdiff_t>(start + count));
        const auto hash = static_cast<std::uint32_t>(count % 3 == 0 ? 0xFFFFFFFF : random());
        const auto polynomial = static_cast<std::uint32_t>(random() | 1);
        for (std::size_t level = 0; level <= static_cast<std::size_t>(GetProcessorLevel());
             ++level) {
            ASSERT_EQ(shared[level](hash, text.data(), count),
                      Remainder(sharedPolynomial, hash, text.data(), count))
                << "level " << level << ", " << count << " bytes";
            ASSERT_EQ(any[level](polynomial, hash, text.data(), count),
                      Remainder(polynomial, hash, text.data(), count))
                << "level " << level << ", " << count << " bytes";
        }
    }
}

}  // namespace
}  // namespace vantry_internal
