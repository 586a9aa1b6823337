#include "hpack/Hio.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "basekit/qtPtr.h"
#include "hpack/Hmemory.h"
#include "tests/support/Bytes.h"
#include "tests/support/Counted.h"
#include "tests/support/Streams.h"

namespace {

TEST(Hio, StringsAreLengthAndBytes) {
    qtBuffer buffer;
    auto* const memory = new Hmemory;
    memory->Open(buffer, 'w');
    Hio<Generic32> io;
    io.stream = qtPtrLight<Generic32>(memory);
    io << qtString("a\0b", 3);
    io.stringHook = [](const qtString& text, void* context) {
        return qtString(text + static_cast<const char*>(context));
    };
    char suffix[] = "!!";
    io.hookContext = suffix;
    io << qtString("hook");
    io.stream->Close();
    EXPECT_EQ(Bytes(buffer), Hex("00 00 00 03 61 00 62 00 00 00 06") + "hook!!");
}

TEST(Generic32, BaseDoesNothing) {
    Generic32 stream;
    Write(stream, "x");
    stream.Seek(5);
    EXPECT_EQ(Read(stream, 1), "#");
    stream.Close();
    EXPECT_EQ(stream.Tell() + stream.SeekEnd() + stream.GetFileSize(), 0u);
    EXPECT_EQ(stream.Name(), "");
}

static_assert(std::is_abstract_v<qtPtrLightBase::m_CountAux>);
static_assert(std::is_abstract_v<qtPtrBase::m_CountAux>);

TEST(qtPtrLight, LastReferenceDeletes) {
    ExpectLastReferenceDeletes<qtPtrLight<CountedBase>>();
}

}  // namespace
