// Any bytes are checked and recovered. What is recovered has no fault, and all that a package
// without fault holds is recovered; what is compacted is the same.
#include "fuzz/Fuzz.h"
#include "hpack/Hmemory.h"
#include "hpack/HpackCheck.h"
#include "hpack/HpackCompact.h"
#include "hpack/HpackRecover.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qtPtr<qtBuffer> buffer = NewBuffer(qtString(reinterpret_cast<const char*>(data), size));
    Hmemory stream;
    stream.Open(*buffer, 'r');
    const HpackCheckReport report = HpackCheck(stream);
    for (const bool unlisted : {false, true}) {
        HpackRecoverOptions options;
        options.unlisted = unlisted;
        qtPtr<qtBuffer> out = NewBuffer();
        Hpack target;
        target.Open(out, 'w');
        const HpackRecoverReport found = HpackRecover(stream, target, options);
        target.Close();
        REQUIRE(out->Length() <= 4 * size + 1024);  // doubtful ones, too, and an index
        Hmemory recovered;
        recovered.Open(*out, 'r');
        REQUIRE(HpackCheck(recovered).Good());
        if (!report.Good()) {
            continue;
        }
        Hpack package;
        package.Open(buffer, 'r');
        target.Open(out, 'r');
        REQUIRE(found.listed == report.items);
        REQUIRE(unlisted || HpackSame(package, target));
        qtPtr<qtBuffer> compact = NewBuffer();
        Hpack copy;
        copy.Open(compact, 'w');
        HpackCompact(package, copy);
        copy.Close();
        copy.Open(compact, 'r');
        REQUIRE(HpackSame(package, copy));
    }
    return 0;
}
