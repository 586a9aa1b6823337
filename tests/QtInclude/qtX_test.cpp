#include "QtInclude/qtX.h"

#include <gtest/gtest.h>

namespace {

struct Family {};

TEST(qtX, TextIsCutButSpecificStringIsWhole) {
    for (const std::size_t length : {0u, 1022u, 1023u, 1024u, 5000u}) {
        const qtString text(length, 'x');
        const qtX<Family> error(text.c_str(), 4);
        EXPECT_EQ(error.Text(), text.substr(0, 1023));
        EXPECT_EQ(error.SpecificString(), text);
    }
}

TEST(qtX, CarriesNumberAndArguments) {
    const qtString first("first\0with NUL", 14);
    EXPECT_TRUE(qtX<Family>("", 1).Arguments().empty());
    const qtX<Family> error("text", -3, first, qtString("second"));
    const qtX<Family> copy(error);
    EXPECT_EQ(copy.Number(), -3);
    EXPECT_EQ(copy.Arguments(), (std::vector<qtString>{first, "second"}));
    EXPECT_EQ(copy.ErrorCode(), 2UL);
    EXPECT_EQ(copy.ErrorLevel(), 1UL);
    EXPECT_STREQ(copy.File(), "");
}

TEST(qtX, IsCaughtByEveryBase) {
    EXPECT_THROW(throw qtX<Family>("", 0), qtXbase);
    EXPECT_THROW(throw qtX<Family>("", 0), qtxAll);
    EXPECT_STREQ(qtXbase("").BaseString(), "qtXbase");
}

}  // namespace
