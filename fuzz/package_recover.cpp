#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TryRecovering(Input(data, size).rest);
    return 0;
}
