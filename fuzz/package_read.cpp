// Any bytes as a package that is opened and read in every way.
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qtPtr<qtBuffer> buffer = NewBuffer(qtString(reinterpret_cast<const char*>(data), size));
    for (const char mode : {'r', 'u'}) {
        Hpack package;
        if (!Succeeds([&] { package.Open(buffer, mode); })) {
            continue;
        }
        for (const auto& [key, body] : ReadableItems(package)) {
            SegBuf segments;
            qtBuffer bytes;
            unsigned int offset = 0;
            unsigned int length = 0;
            package.GetItem(key, segments);
            package.GetItem(key, bytes);
            package.GetKeyInfo(key, offset, length);
            REQUIRE(Bytes(bytes) == body && segments.size == body.size() && length == body.size());
            REQUIRE(offset + length < size);
        }
    }
    return 0;
}
