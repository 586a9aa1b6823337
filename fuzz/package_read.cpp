#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qtPtr<qtBuffer> buffer = NewBuffer(Input(data, size).rest);
    TryEverything(buffer, size);
    return 0;
}
