// Lets the environment variable VANTRY_CPU cap the kernels that the library selects: generic,
// clmul128 or clmul256. Linked into tests and benchmarks only; the library itself never reads it.
#include <cstdlib>
#include <string_view>

#include "cpu/CpuLevel.h"

using vantry_internal::CpuLevel;

CpuLevel vantry_internal::CpuLevelCap() {
    const char* const value = std::getenv("VANTRY_CPU");
    const std::string_view cap = value == nullptr ? "" : value;
    return cap == "generic"    ? CpuLevel::Generic
           : cap == "clmul128" ? CpuLevel::Clmul128
           : cap == "clmul256" ? CpuLevel::Clmul256
                               : CpuLevel::Clmul512;
}
