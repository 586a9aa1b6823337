#include "QtInclude/Poly_Hash.h"

#include <cstdio>

xPoly_Hash::~xPoly_Hash() = default;

const char* xPoly_Hash::BaseString() const {
    return "Poly_Hash";
}

xPoly_HashInitErr::~xPoly_HashInitErr() = default;

template <int N>
void Poly_Hash<N>::ThrowInitErr(int value) {
    const bool small = value >= 0 && value < smallestDegree;
    char text[100];
    std::snprintf(text, sizeof text, "Initiation error, requested size (%i) is %s than %i\n",
                  value, small ? "smaller" : "greater", small ? smallestDegree : N);
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
    std::uint32_t remainder = hash & mask;
    for (const char* const end = bytes + count; bytes != end; ++bytes) {
        remainder = Step(remainder, static_cast<unsigned char>(*bytes));
    }
    return remainder;
}

template class Poly_Hash<32>;
