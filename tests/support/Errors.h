#pragma once

#include <gtest/gtest.h>

#include <typeinfo>
#include <vector>

#include "QtInclude/qtX.h"

/// Runs `action` and checks that it throws qtX<T> with this number, text and these arguments.
template <class T, class Action>
void ExpectError(Action action, int number, const qtString& text,
                 const std::vector<qtString>& arguments) {
    try {
        action();
    } catch (const qtX<T>& error) {
        EXPECT_EQ(error.Number(), number);
        EXPECT_EQ(error.SpecificString(), text);
        EXPECT_EQ(error.Text(), text.substr(0, 1023));
        EXPECT_EQ(error.Arguments(), arguments);
        EXPECT_EQ(error.ErrorCode(), 2UL);
        EXPECT_EQ(error.ErrorLevel(), 1UL);
        EXPECT_STREQ(error.BaseString(), typeid(T).name());
        return;
    }
    ADD_FAILURE() << "expected an error: " << text;
}
