#include "hpack/Hmemory.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/Bytes.h"
#include "tests/support/Errors.h"
#include "tests/support/Streams.h"

namespace {

template <class Action>
void ExpectFailure(Action action, int number, const char* text) {
    ExpectError<HioErr>(action, number, text, {"qtBuffer"});
}

TEST(Hmemory, GrowsAheadAndTrimsOnClose) {
    qtBuffer buffer;
    buffer.Resize(500);
    {
        Hmemory stream;
        stream.Open(buffer, 'w');
        EXPECT_EQ(stream.GetFileSize(), 0u);
        Write(stream, qtString(10, 'a'));
        EXPECT_EQ(buffer.Length(), 500u);
        Write(stream, qtString(491, 'b'));
        EXPECT_EQ(buffer.Length(), 2000u);
        Write(stream, qtString(1500, 'c'));
        EXPECT_EQ(buffer.Length(), 4002u);
        stream.Seek(4);
        Write(stream, "XY");
        EXPECT_EQ(stream.Tell(), 6u);
        EXPECT_EQ(stream.GetFileSize(), 2001u);
        EXPECT_EQ(stream.SeekEnd(), 2001u);
    }
    EXPECT_EQ(Bytes(buffer), "aaaaXYaaaa" + qtString(491, 'b') + qtString(1500, 'c'));
}

TEST(Hmemory, ModesAndFailures) {
    qtBuffer buffer = *NewBuffer("0123456789");
    Hmemory stream;
    ExpectError<HioErr>([&] { Write(stream, "x"); }, 4, "Hio buffer is not open for writing", {""});
    stream.Open(buffer, 'r');
    stream.Seek(8);
    ExpectFailure([&] { Read(stream, 3); }, 3, "Read error in Hio buffer");
    char byte = 0;
    ExpectFailure([&] { stream.Read(&byte, 0xffffffff - 4); }, 3, "Read error in Hio buffer");
    EXPECT_EQ(Read(stream, 2), "89");
    EXPECT_EQ(Read(stream, 0), "");
    ExpectFailure([&] { stream.Seek(11); }, 2, "Invalid seek in Hio buffer");
    ExpectFailure([&] { stream.Seek(-1); }, 2, "Invalid seek in Hio buffer");
    EXPECT_EQ(stream.Tell(), 10u);
    ExpectFailure([&] { Write(stream, "x"); }, 4, "Hio buffer is not open for writing");
    stream.Close();
    EXPECT_EQ(Bytes(buffer), "0123456789");

    stream.Open(buffer, 'u');
    EXPECT_EQ(stream.SeekEnd(), 10u);
    Write(stream, "ab");
    // Position and count add up to more than 32 bits hold.
    ExpectFailure([&] { stream.Write(&byte, 0xffffffff); }, 4,
                  "Hio buffer is not open for writing");
    EXPECT_EQ(stream.Tell(), 12u);
    stream.Close();
    EXPECT_EQ(Bytes(buffer), "0123456789ab");
}

TEST(Hmemory, LargestBuffer) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer allocates no such buffer";
#endif
    qtBuffer buffer;
    try {
        buffer.Resize(0xffffffff);
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "no memory";
    }
    Hmemory stream;
    stream.Open(buffer, 'r');
    EXPECT_EQ(stream.SeekEnd(), 0xffffffffu);
    if (sizeof(long) > 4) {
        buffer.Resize(buffer.Length() + 1);
        ExpectFailure([&] { stream.Open(buffer, 'r'); }, 0, "Cannot open file: qtBuffer");
    }
}

TEST(Hmemory, ClosedStreamNeverTouchesTheBuffer) {
    auto buffer = std::make_unique<qtBuffer>();
    Hmemory stream;
    stream.Open(*buffer, 'w');
    Write(stream, "abc");
    stream.Close();
    buffer.reset();
    stream.Close();
    stream.Seek(0);
    EXPECT_EQ(stream.SeekEnd(), 0u);
    ExpectFailure([&] { stream.Seek(1); }, 2, "Invalid seek in Hio buffer");
    ExpectFailure([&] { Read(stream, 1); }, 3, "Read error in Hio buffer");
    ExpectFailure([&] { Write(stream, "x"); }, 4, "Hio buffer is not open for writing");
}

}  // namespace
