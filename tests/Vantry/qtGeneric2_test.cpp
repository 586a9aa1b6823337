#include "Vantry/qtGeneric2.h"

#include <unistd.h>

#include <cstdlib>

#include "tests/support/Errors.h"

namespace {

// The directory is decided once per process: each way to decide runs in a child of its own.
TEST(qtGeneric2, DecidesOnceFromTheEnvironment) {
    const auto child = [](const char* expected) {
        const bool decided = generic_get_tempdir() == expected;
        setenv("TMPDIR", "/later", 1);
        std::exit(decided && generic_get_tempdir() == expected ? 0 : 1);
    };
    for (const qtString name : {"/no/such/folder/", ""}) {
        setenv("TMPDIR", name.c_str(), 1);
        EXPECT_EXIT(child(name.empty() ? "/tmp" : name.c_str()), testing::ExitedWithCode(0), "");
    }
    unsetenv("TMPDIR");
    EXPECT_EXIT(child("/tmp"), testing::ExitedWithCode(0), "");
}

TEST(qtGeneric2, OutlivesStaticObjects) {
    const auto child = [] {
        std::atexit(
            [] { _exit(generic_get_tempdir().find_first_not_of('x') == qtString::npos ? 0 : 1); });
        generic_set_tempdir(qtString(100, 'x'));
        std::exit(2);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST(qtGeneric2, SetTakesOneTo1023Bytes) {
    const qtString longest(1023, 'x');
    generic_set_tempdir("x");
    const qtString& tempdir = generic_get_tempdir();
    for (const qtString& refused : {qtString(), qtString(longest + "x")}) {
        ExpectThrow<qtxGeneric>([&] { generic_set_tempdir(refused); }, "qtxGeneric",
                                "Invalid path size", 9, 2, "Vantry/qtGeneric2.cpp");
    }
    EXPECT_EQ(tempdir, "x");
    generic_set_tempdir(longest);
    EXPECT_EQ(&generic_get_tempdir(), &tempdir);
    EXPECT_EQ(tempdir, longest);
}

}  // namespace
