#include "QtInclude/PolyRemainder.h"

#include <cstring>

#include "QtInclude/CpuLevel.h"

static SharedRemainder Choose() {
    constexpr SharedRemainder ways[] = {
        SharedRemainderTables,
#if defined(__x86_64__) || defined(__i386__)
        SharedRemainder128,
        SharedRemainder256,
        SharedRemainder512,
#endif
    };
    const SharedRemainder chosen = ways[static_cast<int>(GetCpuLevel())];
    sharedRemainder.store(chosen, std::memory_order_relaxed);
    return chosen;
}

static std::uint32_t ChooseAndDivide(std::uint32_t hash, const char* bytes, std::size_t count) {
    return Choose()(hash, bytes, count);
}

std::atomic<SharedRemainder> sharedRemainder{ChooseAndDivide};

// Chosen at load, before the program can have threads that change the environment.
[[maybe_unused]] static const SharedRemainder chosenAtLoad = Choose();

const PolyRemainder& GetPolyRemainder() {
    static constexpr PolyRemainder ways[] = {
        {AnyRemainderTables, 2048},
#if defined(__x86_64__) || defined(__i386__)
        {AnyRemainder128, 128},
        {AnyRemainder256, 128},
        {AnyRemainder512, 128},
#endif
    };
    return ways[static_cast<int>(GetCpuLevel())];
}

namespace {

// Bytes that a round takes. A hash and these bytes make a number of four bytes more, of which the
// lowest four are part of the remainder as they are; each other has a table.
constexpr std::size_t roundBytes = 16;

struct Tables {
    // remainder[k][b] is that of b(x) * x^(32 + 8k).
    std::uint32_t remainder[roundBytes][256];

    constexpr explicit Tables(std::uint32_t polynomial) : remainder() {
        const Poly_Hash<32> hash(32, polynomial, 0);
        for (std::size_t b = 0; b < 256; ++b) {
            remainder[0][b] = hash.TableEntry(static_cast<unsigned char>(b));
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
