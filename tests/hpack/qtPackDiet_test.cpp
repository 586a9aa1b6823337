#include "hpack/qtPackDiet.h"

#include <gtest/gtest.h>

#include "tests/support/Bytes.h"

namespace {

// What every number of every type is packed to, fuzz/numbers.cpp compares.
TEST(qtPackDiet, BigEndianAndAnyBitIsTrue) {
    char bytes[4];
    EXPECT_EQ(qtPackUssDiet(0x4a5b6c66U, bytes), 4);
    EXPECT_EQ(qtString(bytes, 4), Hex("4a 5b 6c 66"));
    bool flag = false;
    qtUnpackUssDiet(flag, "\x80");
    EXPECT_TRUE(flag);
}

}  // namespace
