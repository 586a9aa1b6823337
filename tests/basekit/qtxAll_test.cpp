#include "basekit/qtxAll.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(qtxAll, OwnsItsTextsAndCopiesThem) {
    qtString text("a text that is longer than a small string buffer holds");
    qtxAll original(0xFFFFFFFFUL, text.c_str(), 2);
    text.assign(text.size(), 'x');
    EXPECT_STREQ(original.File(), "");
    EXPECT_EQ(original.Line(), 0);
    original.SetFileInfo("folder/file.cpp", 12, "Jan  1 2020", "10:11:12");

    const qtxAll copy(original);
    original.ErrorCode(7);
    original.ErrorLevel(1);
    EXPECT_EQ(copy.ErrorCode(), 0xFFFFFFFFUL);
    EXPECT_EQ(copy.ErrorLevel(), 2UL);
    EXPECT_STREQ(copy.SpecificString(), "a text that is longer than a small string buffer holds");
    EXPECT_STREQ(copy.File(), "folder/file.cpp");
    EXPECT_EQ(copy.Line(), 12);
    EXPECT_STREQ(copy.Date(), "Jan  1 2020");
    EXPECT_STREQ(copy.Time(), "10:11:12");
}

TEST(qtxAll, ErrorStringIsOneLineWithAllThatIsKnown) {
    qtxAll error(9, "first\nsecond\n", 2);
    EXPECT_EQ(error.ErrorString(), "qtxAll: severe error (code 9, level 2): first second");
    error.SetFileInfo("folder/file.cpp", 12, "", "");
    error.SystemNumber(ENOENT);
    const qtxAll copy = error;
    EXPECT_EQ(copy.SystemNumber(), ENOENT);
    EXPECT_EQ(copy.ErrorString(),
              "qtxAll: severe error (code 9, level 2): first second: No such file or directory "
              "[folder/file.cpp:12]");
    EXPECT_EQ(qtxAll(1, "", 3).ErrorString(), "qtxAll: unknown level (code 1, level 3)");
}

}  // namespace
