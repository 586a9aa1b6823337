#include "Vantry/qtGeneric2.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

void ExpectRefused(const qtString& path) {
    try {
        generic_set_tempdir(path);
        ADD_FAILURE() << path.size() << " bytes accepted";
    } catch (const qtxGeneric& error) {
        EXPECT_STREQ(error.SpecificString(), "Invalid path size");
        EXPECT_STREQ(error.BaseString(), "qtxGeneric");
        EXPECT_EQ(error.ErrorCode(), 9UL);
        EXPECT_EQ(error.ErrorLevel(), 2UL);
        EXPECT_STREQ(error.File(), "Vantry/qtGeneric2.cpp");
        EXPECT_GT(error.Line(), 0);
    }
}

// The directory is decided once per process, so this is one case: each way to decide runs in a
// child of its own, which tells what it found by its exit status.
TEST(qtGeneric2, DecidesOnceFromTheEnvironment) {
    const struct {
        const char* variable;
        const char* expected;
    } cases[] = {{nullptr, "/tmp"}, {"", "/tmp"}, {"/no/such/folder/", "/no/such/folder/"}};
    for (const auto& [variable, expected] : cases) {
        const auto child = [variable = variable, expected = expected] {
            if (variable == nullptr) {
                unsetenv("TMPDIR");
            } else {
                setenv("TMPDIR", variable, 1);
            }
            const bool decided = generic_get_tempdir() == expected;
            setenv("TMPDIR", "/later", 1);
            std::exit(decided && generic_get_tempdir() == expected ? 0 : 1);
        };
        EXPECT_EXIT(child(), testing::ExitedWithCode(0), "") << expected;
    }
}

TEST(qtGeneric2, SetTakesOneTo1023Bytes) {
    const qtString longest(1023, 'x');
    generic_set_tempdir("x");
    const qtString& tempdir = generic_get_tempdir();
    ExpectRefused("");
    ExpectRefused(longest + "x");
    EXPECT_EQ(tempdir, "x");
    generic_set_tempdir(longest);
    EXPECT_EQ(&generic_get_tempdir(), &tempdir);
    EXPECT_EQ(tempdir, longest);
}

}  // namespace
