#include "QtInclude/Poly_Hash.h"

#include <gtest/gtest.h>

#include "lpstring/LpStringHash.h"

namespace {

TEST(PolyHash, KnownValues) {
    const Poly_Hash<32>& hash = LpStringHash::s_polyHash;
    const std::pair<qtString, unsigned int> known[] = {{"", 0x1},
                                                       {"a", 0x161},
                                                       {"abc", 0x1616263},
                                                       {"abcd", 0xa1626765},
                                                       {"hello world", 0xdf1a7dd9}};
    for (const auto& [text, value] : known) {
        EXPECT_EQ(hash.Hash(text), value) << text;
    }
    EXPECT_EQ(hash.Degree(), 32);
    EXPECT_EQ(hash.Mask(), 0xFFFFFFFFu);
    EXPECT_EQ(hash.InitialValue(), 1u);
    const std::pair<unsigned char, unsigned int> entries[] = {
        {0, 0},          {1, 0xc0000401},    {2, 0x40000c03},
        {3, 0x80000802}, {0x80, 0x40036cdb}, {0xFF, 0x80024892}};
    for (const auto& [byte, value] : entries) {
        EXPECT_EQ(hash.TableEntry(byte), value);
    }
}

TEST(PolyHash, InitRefusesDegreesAndChangesNothing) {
    const std::pair<int, const char*> refused[] = {
        {7, "Initiation error, requested size (7) is smaller than 8\n"},
        {0, "Initiation error, requested size (0) is smaller than 8\n"},
        {33, "Initiation error, requested size (33) is greater than 32\n"},
        {-1, "Initiation error, requested size (-1) is greater than 32\n"}};
    Poly_Hash<32> hash(8, 0x171, 0x12345);
    for (const auto& [degree, text] : refused) {
        try {
            hash.Init(degree, 1, 1);
            FAIL() << degree;
        } catch (const xPoly_Hash& error) {
            EXPECT_NE(dynamic_cast<const xPoly_HashInitErr*>(&error), nullptr);
            EXPECT_STREQ(error.SpecificString(), text);
            EXPECT_STREQ(error.BaseString(), "Poly_Hash");
            EXPECT_EQ(error.ErrorCode(), 8u);
            EXPECT_EQ(error.ErrorLevel(), 1u);
            EXPECT_STREQ(error.File(), "QtInclude/Poly_Hash.cpp");
        }
        EXPECT_THROW((Poly_Hash<32>(degree, 1, 1)), xPoly_HashInitErr);
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
    qtString text(5000, 'a');
    text += 'z';
    EXPECT_EQ(hash.Hash(text), static_cast<unsigned int>('z'));
}

}  // namespace
