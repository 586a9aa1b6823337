#include "basekit/qtBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <utility>

namespace {

TEST(qtBuffer, ResizeKeepsTheBytesOfBothLengths) {
    qtBuffer buffer;
    EXPECT_EQ(buffer.Length(), 0u);
    buffer.Resize(5);
    std::memcpy(buffer.Data(), "abcde", 5);
    buffer.Resize(1 << 20);
    EXPECT_EQ(std::memcmp(buffer.Data(), "abcde", 5), 0);
    buffer.Resize(3);
    EXPECT_EQ(buffer.Length(), 3u);
    EXPECT_EQ(std::memcmp(buffer.Data(), "abc", 3), 0);
    buffer.Resize(0);
    EXPECT_EQ(buffer.Length(), 0u);
}

TEST(qtBuffer, CopiesAreIndependent) {
    qtBuffer buffer;
    buffer.Resize(2);
    std::memcpy(buffer.Data(), "xy", 2);
    qtBuffer copy(buffer);
    copy.Data()[0] = 'z';
    EXPECT_EQ(buffer.Data()[0], 'x');
    buffer = copy;
    EXPECT_EQ(buffer.Data()[0], 'z');
    const qtBuffer moved(std::move(copy));
    EXPECT_EQ(moved.Length(), 2u);
}

TEST(qtBuffer, GrowingBeyondMemoryChangesNothing) {
    qtBuffer buffer;
    buffer.Resize(2);
    std::memcpy(buffer.Data(), "xy", 2);
    EXPECT_THROW(buffer.Resize(~0UL / 2), std::bad_alloc);
    ASSERT_EQ(buffer.Length(), 2u);
    EXPECT_EQ(std::memcmp(buffer.Data(), "xy", 2), 0);
}

}  // namespace
