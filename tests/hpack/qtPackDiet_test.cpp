#include "hpack/qtPackDiet.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/Bytes.h"

namespace {

template <class T>
void ExpectPacked(T value, const qtString& packed) {
    char bytes[10];
    std::memset(bytes, '#', sizeof bytes);
    EXPECT_EQ(qtPackUssDiet(value, bytes), static_cast<int>(packed.size()));
    EXPECT_EQ(qtString(bytes, packed.size()), packed);
    EXPECT_EQ(bytes[packed.size()], '#');
    T back;
    EXPECT_EQ(qtGetPackedSizeDiet(back), static_cast<int>(packed.size()));
    EXPECT_EQ(qtUnpackUssDiet(back, packed.data()), static_cast<int>(packed.size()));
    EXPECT_EQ(back, value);
}

TEST(qtPackDiet, BytesOfEveryType) {
    ExpectPacked<unsigned short>(0, Hex("00 00"));
    ExpectPacked<unsigned short>(0x1234, Hex("12 34"));
    ExpectPacked<unsigned short>(0xffff, Hex("ff ff"));
    ExpectPacked<unsigned int>(1000000, Hex("00 0f 42 40"));
    ExpectPacked<unsigned int>(0x4a5b6c66, Hex("4a 5b 6c 66"));
    ExpectPacked<unsigned int>(0xffffffff, Hex("ff ff ff ff"));
    ExpectPacked<unsigned long>(0x4a5b6c66, Hex("00 00 00 00 4a 5b 6c 66"));
    ExpectPacked<long>(1, Hex("00 00 00 00 00 00 00 01"));
    ExpectPacked<unsigned char>(0xfe, Hex("fe"));
    ExpectPacked<int>(-2, Hex("ff ff ff fe"));
    ExpectPacked(true, Hex("01"));
    bool flag = false;
    qtUnpackUssDiet(flag, "\x80");
    EXPECT_TRUE(flag);
}

}  // namespace
