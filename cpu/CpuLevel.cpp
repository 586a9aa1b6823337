#include "cpu/CpuLevel.h"

#include <algorithm>

namespace vantry_internal {

CpuLevel GetProcessorLevel() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("sse4.1") || !__builtin_cpu_supports("ssse3") ||
        !__builtin_cpu_supports("popcnt") || !__builtin_cpu_supports("pclmul")) {
        return CpuLevel::Generic;
    }
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi") ||
        !__builtin_cpu_supports("bmi2") || !__builtin_cpu_supports("vpclmulqdq")) {
        return CpuLevel::Clmul128;
    }
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
        !__builtin_cpu_supports("avx512vl") || !__builtin_cpu_supports("avx512vbmi2")) {
        return CpuLevel::Clmul256;
    }
    return CpuLevel::Clmul512;
#else
    return CpuLevel::Generic;
#endif
}

CpuLevel GetCpuLevel() {
    static const CpuLevel level = &CpuLevelCap == nullptr
                                      ? GetProcessorLevel()
                                      : std::min(GetProcessorLevel(), CpuLevelCap());
    return level;
}

}  // namespace vantry_internal
