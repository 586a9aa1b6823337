#include "basekit/qtBuffer.h"

#include <gtest/gtest.h>

#include <new>
#include <utility>

#include "tests/support/Bytes.h"

namespace {

TEST(qtBuffer, KeepsItsBytesWhateverLengthItTakes) {
    qtBuffer buffer = *NewBuffer("abcde");
    buffer.Resize(1 << 20);
    EXPECT_THROW(buffer.Resize(~0UL - 64), std::bad_alloc);
    EXPECT_EQ(buffer.Length(), 1u << 20);
    buffer.Resize(3);
    EXPECT_EQ(Bytes(buffer), "abc");
    qtBuffer copy(buffer);
    copy.Data()[0] = 'z';
    EXPECT_EQ(Bytes(buffer), "abc");
    buffer = copy;
    EXPECT_EQ(Bytes(buffer), "zbc");
    const qtBuffer moved(std::move(copy));
    EXPECT_EQ(Bytes(moved), "zbc");
    buffer.Resize(0);
    EXPECT_EQ(buffer.Length(), 0u);
}

}  // namespace
