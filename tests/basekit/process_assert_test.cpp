#include "basekit/process_assert.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string reported;

void Report(const char* expression, const char* file, int line, const char* function) {
    reported = std::string(expression) + file + std::to_string(line) + function;
}

TEST(process_assert, IsReportedAndSurvived) {
    EXPECT_EQ(SetAssertSink(Report), nullptr);
    process_assert("e", "f", 1, "g");
    EXPECT_EQ(reported, "ef1g");
    EXPECT_EQ(SetAssertSink(nullptr), Report);
    ::testing::internal::CaptureStderr();
    process_assert("a == b", "x.cpp", 12, "void F()");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "x.cpp:12: void F(): assertion failed: a == b\n");
    EXPECT_EQ(reported, "ef1g");
}

}  // namespace
