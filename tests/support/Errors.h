#pragma once

#include <gtest/gtest.h>

#include <typeinfo>
#include <vector>

#include "QtInclude/qtX.h"

/// Runs `action` and checks that it throws such an error, which knows its place if it has a file.
template <class Error, class Action>
void ExpectThrow(Action action, const char* base, const qtString& text, unsigned long code,
                 unsigned long level, const char* file) {
    try {
        action();
        ADD_FAILURE() << "expected an error: " << text;
    } catch (const Error& error) {
        EXPECT_STREQ(error.BaseString(), base);
        EXPECT_EQ(error.SpecificString(), text);
        EXPECT_EQ(error.ErrorCode(), code);
        EXPECT_EQ(error.ErrorLevel(), level);
        EXPECT_STREQ(error.File(), file);
        EXPECT_EQ(error.Line() > 0, *file != '\0');
    }
}

/// Runs `action` and checks that it throws qtX<T> with this number, text and these arguments.
template <class T, class Action>
void ExpectError(Action action, int number, const qtString& text,
                 const std::vector<qtString>& arguments) {
    const auto look = [&] {
        try {
            action();
        } catch (const qtX<T>& error) {
            EXPECT_EQ(error.Number(), number);
            EXPECT_EQ(error.Text(), text.substr(0, 1023));
            EXPECT_EQ(error.Arguments(), arguments);
            throw;
        }
    };
    ExpectThrow<qtX<T>>(look, typeid(T).name(), text, 2, 1, "");
}
