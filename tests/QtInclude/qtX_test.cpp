#include "QtInclude/qtX.h"

#include <gtest/gtest.h>

namespace {

struct Family {};

TEST(qtX, CarriesTextNumberAndArguments) {
    const qtString text(5000, 'x');
    const qtString first("first\0with NUL", 14);
    EXPECT_TRUE(qtX<Family>("", 1).Arguments().empty());
    const qtX<Family> error(text.c_str(), -3, first, qtString("second"));
    const qtX<Family> copy(error);
    EXPECT_EQ(copy.Text(), text.substr(0, 1023));
    EXPECT_EQ(copy.SpecificString(), text);
    EXPECT_EQ(copy.Number(), -3);
    EXPECT_EQ(copy.Arguments(), (std::vector<qtString>{first, "second"}));
    EXPECT_EQ(copy.ErrorCode(), 2UL);
    EXPECT_EQ(copy.ErrorLevel(), 1UL);
    EXPECT_STREQ(copy.File(), "");
    EXPECT_STREQ(qtXbase("").BaseString(), "qtXbase");
}

}  // namespace
