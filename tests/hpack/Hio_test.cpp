#include "hpack/Hio.h"

#include <gtest/gtest.h>

#include "hpack/Hmemory.h"
#include "tests/support/Bytes.h"
#include "tests/support/Counted.h"

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

TEST(qtPtrLight, LastReferenceDeletes) {
    ExpectLastReferenceDeletes<qtPtrLight<CountedBase>>();
}

}  // namespace
