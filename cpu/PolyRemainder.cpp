#include "cpu/PolyRemainder.h"

#include <cstring>

#include "cpu/CpuLevel.h"

namespace vantry_internal {

static SharedRemainder Choose() {
    constexpr SharedRemainder kernels[] = {
        SharedRemainderTables,
#if defined(__x86_64__) || defined(__i386__)
        SharedRemainder128,
        SharedRemainder256,
        SharedRemainder512,
#endif
    };
    const SharedRemainder chosen = kernels[static_cast<int>(GetCpuLevel())];
    sharedRemainder.store(chosen, std::memory_order_relaxed);
    return chosen;
}

static std::uint32_t ChooseAndDivide(std::uint32_t hash, const char* bytes, std::size_t count) {
    return Choose()(hash, bytes, count);
}

std::atomic<SharedRemainder> sharedRemainder{ChooseAndDivide};

// Selected at load, so that no call has to.
[[maybe_unused]] static const SharedRemainder chosenAtLoad = Choose();

const PolyRemainder& GetPolyRemainder() {
    static constexpr PolyRemainder kernels[] = {
        {AnyRemainderTables, 2048},
#if defined(__x86_64__) || defined(__i386__)
        {AnyRemainder128, 128},
        {AnyRemainder256, 128},
        {AnyRemainder512, 128},
#endif
    };
    return kernels[static_cast<int>(GetCpuLevel())];
}

namespace {

// Bytes per round. A hash followed by these bytes is a number of 20 bytes. Its lowest four bytes
// are part of the remainder as they are; each of the others has a table.
constexpr std::size_t roundBytes = 16;

struct Tables {
    // remainder[k][b] is that of b(x) * x^(32 + 8k).
    std::uint32_t remainder[roundBytes][256];

    constexpr explicit Tables(std::uint32_t polynomial) : remainder() {
        for (std::uint32_t b = 0; b < 256; ++b) {
            std::uint32_t value = b << 24;
            for (int bit = 0; bit < 8; ++bit) {
                value = (value << 1) ^ (value >> 31 != 0 ? polynomial : 0);
            }
            remainder[0][b] = value;
        }
        for (std::size_t k = 1; k < roundBytes; ++k) {
            for (std::size_t b = 0; b < 256; ++b) {
                const std::uint32_t before = remainder[k - 1][b];
                remainder[k][b] = (before << 8) ^ remainder[0][before >> 24];
            }
        }
    }

    // The remainder of word(x) * x^(32 + 8k).
    std::uint32_t OfWord(std::uint32_t word, std::size_t k) const {
        return remainder[k][word & 0xFF] ^ remainder[k + 1][word >> 8 & 0xFF] ^
               remainder[k + 2][word >> 16 & 0xFF] ^ remainder[k + 3][word >> 24];
    }
};

std::uint32_t BigEndianWord(const char* bytes) {
    std::uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    word = __builtin_bswap32(word);
#endif
    return word;
}

std::uint32_t Divide(const Tables& tables, std::uint32_t hash, const char* bytes,
                     std::size_t count) {
    for (; count >= roundBytes; bytes += roundBytes, count -= roundBytes) {
        hash = tables.OfWord(hash, 12) ^ tables.OfWord(BigEndianWord(bytes), 8) ^
               tables.OfWord(BigEndianWord(bytes + 4), 4) ^
               tables.OfWord(BigEndianWord(bytes + 8), 0) ^ BigEndianWord(bytes + 12);
    }
    for (; count >= 4; bytes += 4, count -= 4) {
        hash = tables.OfWord(hash, 0) ^ BigEndianWord(bytes);
    }
    for (; count > 0; ++bytes, --count) {
        hash = (hash << 8) ^ tables.remainder[0][hash >> 24] ^ static_cast<unsigned char>(*bytes);
    }
    return hash;
}

constexpr Tables sharedTables(sharedPolynomial);

}  // namespace

std::uint32_t SharedRemainderTables(std::uint32_t hash, const char* bytes, std::size_t count) {
    return Divide(sharedTables, hash, bytes, count);
}

std::uint32_t AnyRemainderTables(std::uint32_t polynomial, std::uint32_t hash, const char* bytes,
                                 std::size_t count) {
    return Divide(Tables(polynomial), hash, bytes, count);
}

}  // namespace vantry_internal
