#include "QtInclude/Poly_Hash.h"

#include <cstdio>

#include "basekit/FileInfo.h"
#include "cpu/PolyRemainder.h"

using vantry_internal::GetPolyRemainder;
using vantry_internal::PolyRemainder;
using vantry_internal::sharedPolynomial;
using vantry_internal::sharedRemainder;

static_assert(sharedPolynomial == Hash_primitive_seed[32]);

xPoly_Hash::~xPoly_Hash() = default;

const char* xPoly_Hash::BaseString() const {
    return "Poly_Hash";
}

xPoly_HashInitErr::~xPoly_HashInitErr() = default;

template <int N>
void Poly_Hash<N>::ThrowInitErr(int value) {
    const bool small = value >= 0 && value < smallestDegree;
    char text[100];
    std::snprintf(text, sizeof text, "Initiation error, requested size (%i) is %s than %i\n", value,
                  small ? "smaller" : "greater", small ? smallestDegree : N);
    xPoly_HashInitErr error(8, text, 1);
    error.SetFileInfo(QT_FILE_INFO);
    throw error;
}

template <int N>
void Poly_Hash<N>::Init(int newDegree, unsigned int polynomial, unsigned int newInitialValue) {
    if (!IsDegree(newDegree)) {
        ThrowInitErr(newDegree);
    }
    Set(newDegree, polynomial, newInitialValue);
}

template <int N>
unsigned int Poly_Hash<N>::Hash(const char* bytes, std::size_t count) const {
    return Extend(initialValue, bytes, count);
}

template <int N>
unsigned int Poly_Hash<N>::Hash(const qtString& bytes) const {
    return Extend(initialValue, bytes.data(), bytes.size());
}

template <int N>
unsigned int Poly_Hash<N>::Extend(unsigned int hash, const char* bytes, std::size_t count) const {
    // For degree 32 this entry is the polynomial; lower degrees have no bit that high.
    if (__builtin_expect(table[1] == sharedPolynomial, 1)) {
        return sharedRemainder.load(std::memory_order_relaxed)(hash, bytes, count);
    }
    return ExtendOther(hash & mask, bytes, count);
}

template <int N>
std::uint32_t Poly_Hash<N>::ExtendOther(std::uint32_t hash, const char* bytes,
                                        std::size_t count) const {
    const PolyRemainder& remainder = GetPolyRemainder();
    if (count < remainder.breakEvenBytes) {
        return StepBytes(hash, bytes, count);
    }
    // P * x^(32 - degree) is a multiple of P of degree 32.
    hash = remainder.divide(table[1] << (32 - degree), hash, bytes, count);
    if (degree == 32) {
        return hash;
    }
    const char bytesOfHash[] = {static_cast<char>(hash >> 24), static_cast<char>(hash >> 16),
                                static_cast<char>(hash >> 8), static_cast<char>(hash)};
    return StepBytes(0, bytesOfHash, sizeof bytesOfHash);
}

template <int N>
std::uint32_t Poly_Hash<N>::StepBytes(std::uint32_t hash, const char* bytes,
                                      std::size_t count) const {
    for (const char* const end = bytes + count; bytes != end; ++bytes) {
        hash =
            (hash << 8 & mask) ^ table[hash >> (degree - 8)] ^ static_cast<unsigned char>(*bytes);
    }
    return hash;
}

template class Poly_Hash<32>;
