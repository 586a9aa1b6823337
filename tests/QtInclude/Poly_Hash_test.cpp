#include "QtInclude/Poly_Hash.h"

#include <gtest/gtest.h>

#include "lpstring/LpStringHash.h"
#include "tests/support/Errors.h"

namespace {

TEST(PolyHash, KnownValues) {
    const Poly_Hash<32>& hash = LpStringHash::s_polyHash;
    EXPECT_EQ(hash.Hash(""), 0x1u);
    EXPECT_EQ(hash.Hash("abcd"), 0xa1626765u);
    EXPECT_EQ(hash.Hash("hello world"), 0xdf1a7dd9u);
    EXPECT_EQ(hash.TableEntry(1), 0xc0000401u);
    EXPECT_EQ(hash.TableEntry(0xFF), 0x80024892u);
}

TEST(PolyHash, InitRefusesDegreesAndChangesNothing) {
    const std::pair<int, const char*> refused[] = {
        {7, "Initiation error, requested size (7) is smaller than 8\n"},
        {33, "Initiation error, requested size (33) is greater than 32\n"},
        {-1, "Initiation error, requested size (-1) is greater than 32\n"}};
    Poly_Hash<32> hash(8, 0x171, 0x12345);
    for (const auto& [degree, text] : refused) {
        const auto init = [&, degree = degree] { hash.Init(degree, 1, 1); };
        ExpectThrow<xPoly_HashInitErr>(init, "Poly_Hash", text, 8, 1, "QtInclude/Poly_Hash.cpp");
        EXPECT_THROW((Poly_Hash<32>(degree, 1, 1)), xPoly_Hash);
    }
    // Bits above the degree were cut when it was made.
    EXPECT_EQ(hash.Degree(), 8);
    EXPECT_EQ(hash.Mask(), 0xFFu);
    EXPECT_EQ(hash.InitialValue(), 0x45u);
    EXPECT_EQ(hash.TableEntry(1), 0x71u);
}

TEST(PolyHash, UnusedObjectHashesModuloX8) {
    const Poly_Hash<32> hash;
    EXPECT_EQ(hash.Hash(""), 0u);
    EXPECT_EQ(hash.Hash(qtString(5000, 'a') + 'z'), static_cast<unsigned int>('z'));
}

}  // namespace
