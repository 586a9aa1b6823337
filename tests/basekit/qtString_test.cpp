#include "basekit/qtString.h"

#include <gtest/gtest.h>

namespace {

TEST(qtString, TrimsBothEnds) {
    struct {
        const char* text;
        const char* trimmed;
    } const cases[] = {{"", ""},
                       {" ", ""},
                       {" \t\n\v\f\r", ""},
                       {"a", "a"},
                       {" a \t b\n", "a \t b"},
                       {"\xA0 a", "\xA0 a"}};
    for (const auto& row : cases) {
        qtString text(row.text);
        text.TrimWhiteSpace();
        EXPECT_EQ(text, row.trimmed);
    }
    qtString text(std::string("\0 a\0", 4));
    text.TrimWhiteSpace();
    EXPECT_EQ(text.size(), 4u) << "a NUL is no white space";
}

}  // namespace
