#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

/// @file
/// Packed integers: a fixed number of bytes, most significant first, the same on every machine.
///
///     char bytes[4];
///     qtPackUssDiet<unsigned int>(300, bytes);   // 00 00 01 2c
///     unsigned int value;
///     qtUnpackUssDiet(value, bytes);             // 300
///
/// The size depends only on the type. A reader has to know which type comes next: there is no tag,
/// no length and no terminator. The functions keep no state; any number of threads may call them.

/// The packed size of an integer type in bytes: its own size, but 8 for long and unsigned long,
/// with leading zero bytes if the machine's long is shorter.
template <class T>
constexpr int qtPackedSize = std::is_same_v<T, long> || std::is_same_v<T, unsigned long>
                                 ? 8
                                 : static_cast<int>(sizeof(T));

/// Returns the packed size of `T`; the value is not read and need not be set.
template <class T>
constexpr int qtGetPackedSizeDiet(const T& /*value*/) {
    return qtPackedSize<T>;
}

/// Writes the packed form of `value` at `out`, which must have room for it.
/// @return the number of bytes written, the packed size of `T`
template <class T>
constexpr int qtPackUssDiet(T value, char* out) {
    constexpr int size = qtPackedSize<T>;
    constexpr int own = static_cast<int>(sizeof(T));
    const auto bits = static_cast<unsigned long long>(value);
    for (int i = 0; i < size; ++i) {
        const int fromEnd = size - 1 - i;
        out[i] = fromEnd < own
                     ? static_cast<char>(static_cast<unsigned char>(bits >> (8 * fromEnd)))
                     : '\0';
    }
    return size;
}

/// The integer whose bytes are `in[I]...`, most significant first.
template <class T, std::size_t... I>
constexpr T qtJoinBytes(const char* in, std::index_sequence<I...> /*places*/) {
    // One expression, not a loop: compilers make a single load of it.
    return static_cast<T>((... | (static_cast<unsigned long long>(static_cast<unsigned char>(in[I]))
                                  << (8 * (sizeof(T) - 1 - I)))));
}

/// Reads the packed form at `in` into `value`. A bool is true for any byte but 0.
/// @return the number of bytes consumed, the packed size of `T`
template <class T>
constexpr int qtUnpackUssDiet(T& value, const char* in) {
    constexpr int size = qtPackedSize<T>;
    constexpr int own = static_cast<int>(sizeof(T));
    value = qtJoinBytes<T>(in + (size - own), std::make_index_sequence<sizeof(T)>());
    return size;
}
