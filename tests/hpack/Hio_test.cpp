#include "hpack/Hio.h"

#include <gtest/gtest.h>

#include "hpack/Hmemory.h"
#include "tests/support/Bytes.h"

namespace {

TEST(Hio, StringsAreLengthAndBytes) {
    qtBuffer buffer;
    auto* const memory = new Hmemory;
    memory->Open(buffer, 'w');
    Hio<Generic32> io;
    io.stream = qtPtrLight<Generic32>(memory);
    const qtString longText(300, 'x');
    io << qtString("a\0b", 3) << qtString() << longText;
    io.stringHook = [](const qtString& text, void* context) {
        return qtString(text + static_cast<const char*>(context));
    };
    char suffix[] = "!!";
    io.hookContext = suffix;
    io << qtString("hook");
    io.stream->Close();
    EXPECT_EQ(Bytes(buffer), Hex("00 00 00 03 61 00 62 00 00 00 00 00 00 01 2c") + longText +
                                 Hex("00 00 00 06") + "hook!!");
}

TEST(Generic32, BaseDoesNothing) {
    Generic32 stream;
    char byte = 'x';
    stream.Write(&byte, 1);
    stream.Seek(5);
    stream.Read(&byte, 1);
    stream.Close();
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(stream.Tell() + stream.SeekEnd() + stream.GetFileSize(), 0u);
    EXPECT_EQ(stream.Name(), "");
}

struct Counted : Generic32 {
    explicit Counted(int& counter) : alive(counter) { ++alive; }
    ~Counted() override { --alive; }
    int& alive;
};

TEST(qtPtrLight, LastReferenceDeletesTheWholeObject) {
    int alive = 0;
    qtPtrLight<Generic32> first(new Counted(alive));
    qtPtrLight<Generic32> second(first);
    first = qtPtrLight<Generic32>();
    second = *&second;
    EXPECT_EQ(alive, 1);
    second = qtPtrLight<Generic32>(new Counted(alive));
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(second);
    second = first;
    EXPECT_EQ(alive, 0);
}

}  // namespace
