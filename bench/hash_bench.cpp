// Poly_Hash, other checks of a string, and reading the same memory. VANTRY_CPU
// caps the kernels that the library selects.
#include <benchmark/benchmark.h>
#include <isa-l/crc.h>
#include <xxhash.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lpstring/LpStringHash.h"

namespace {

const std::vector<char>& Bytes() {
    static const std::vector<char> bytes = [] {
        std::mt19937 random(1);
        std::vector<char> made(16 << 20);
        for (char& byte : made) {
            byte = static_cast<char>(random());
        }
        return made;
    }();
    return bytes;
}

template <class Function>
void Measure(benchmark::State& state, const Function& function) {
    const char* bytes = Bytes().data();
    const auto count = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes);
        benchmark::DoNotOptimize(function(bytes, count));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(count) * state.iterations());
}

std::uint64_t Sum(const char* bytes, std::size_t count) {
    std::uint64_t sums[8] = {};
    for (std::size_t i = 0; i + sizeof sums <= count; i += sizeof sums) {
        std::uint64_t words[8];
        std::memcpy(words, bytes + i, sizeof words);
        for (std::size_t k = 0; k < 8; ++k) {
            sums[k] += words[k];
        }
    }
    std::uint64_t sum = 0;
    for (const std::uint64_t part : sums) {
        sum += part;
    }
    return sum;
}

void Shared(benchmark::State& state) {
    Measure(state, [](const char* bytes, std::size_t count) {
        return LpStringHash::s_polyHash.Hash(bytes, count);
    });
}

void OtherPolynomial(benchmark::State& state) {
    const Poly_Hash<32> hash(31, Hash_primitive_seed[31], 1);
    Measure(state, [&](const char* bytes, std::size_t count) { return hash.Hash(bytes, count); });
}

void Zlib(benchmark::State& state) {
    Measure(state, [](const char* bytes, std::size_t count) {
        return crc32(0, reinterpret_cast<const Bytef*>(bytes), static_cast<uInt>(count));
    });
}

void IsaL(benchmark::State& state) {
    Measure(state, [](const char* bytes, std::size_t count) {
        return crc32_gzip_refl(0, reinterpret_cast<const unsigned char*>(bytes), count);
    });
#if defined(__x86_64__) || defined(__i386__)
    // It leaves the upper halves of the vector registers set, which would slow down the others.
    if (__builtin_cpu_supports("avx")) {
        asm volatile("vzeroupper");
    }
#endif
}

void Xxh3(benchmark::State& state) {
    Measure(state, [](const char* bytes, std::size_t count) { return XXH3_64bits(bytes, count); });
}

void ReadOnlySum(benchmark::State& state) {
    Measure(state, Sum);
}

void Register(const char* name, void (*function)(benchmark::State&)) {
    for (const std::int64_t size : {8, 32, 256, 4 << 10, 64 << 10, 1 << 20, 16 << 20}) {
        const std::string work = "hash/" + std::to_string(size) + '/' + name;
        benchmark::RegisterBenchmark(work.c_str(), function)->Arg(size);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Register("floor_sum", ReadOnlySum);
    Register("vantry", Shared);
    Register("vantry_polynomial", OtherPolynomial);
    Register("zlib_crc32", Zlib);
    Register("isal_crc32", IsaL);
    Register("xxh3", Xxh3);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
