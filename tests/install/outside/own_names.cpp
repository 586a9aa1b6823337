// A program may use any name that no public header has: the libraries must not bind to these, even
// when they are linked statically. The names are those of internal functions.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

struct TokenEdges;
struct PolyRemainder;

int GetCpuLevel() {
    std::abort();
}
int GetProcessorLevel() {
    std::abort();
}
const TokenEdges& GetTokenEdges() {
    std::abort();
}
const PolyRemainder& GetPolyRemainder() {
    std::abort();
}
std::uint32_t SharedRemainderTables(std::uint32_t, const char*, std::size_t) {
    std::abort();
}
std::uint32_t SharedRemainder128(std::uint32_t, const char*, std::size_t) {
    std::abort();
}
std::uint32_t (*sharedRemainder)(std::uint32_t, const char*, std::size_t) = nullptr;

// Called by main, so that this file is linked wherever the order of files matters.
bool HasOwnNames() {
    return sharedRemainder == nullptr;
}
