// A view of any bytes holds what a package does, in memory and in a file.
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/Fuzz.h"
#include "tests/support/Views.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("package", 0);
    static qtString name = "/proc/self/fd/" + std::to_string(file);
    const qtString bytes = Input(data, size).rest;
    qtPtr<qtBuffer> buffer = NewBuffer(bytes);
    TryView(buffer);
    REQUIRE(ftruncate(file, 0) == 0);
    REQUIRE(pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    TryView(name);
    return 0;
}
