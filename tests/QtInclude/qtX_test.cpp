#include "QtInclude/qtX.h"

#include "tests/support/Errors.h"

namespace {

struct Family {};

TEST(qtX, CarriesTextNumberAndArguments) {
    const qtString text(5000, 'x');
    const qtString first("first\0with NUL", 14);
    const qtX<Family> error(text.c_str(), -3, first, qtString("second"));
    const auto throwCopy = [&] { throw error; };
    ExpectError<Family>(throwCopy, -3, text, {first, "second"});
    EXPECT_STREQ(qtXbase("").BaseString(), "qtXbase");
}

}  // namespace
