#pragma once

namespace vantry_internal {

/// Instruction sets that the kernels are compiled for. Each level includes those before it.
enum class CpuLevel {
    Generic,   ///< the compiler's baseline
    Clmul128,  ///< SSE4.1, SSSE3, POPCNT, carry-less multiplication
    Clmul256,  ///< AVX2, BMI, BMI2, 256-bit carry-less multiplication
    Clmul512,  ///< AVX-512 F, BW, VL, VBMI2, 512-bit carry-less multiplication
};

/// Returns the level whose kernels the library uses: the processor's, or CpuLevelCap() where that
/// is lower. Computed once. May be called by any static initializer.
CpuLevel GetCpuLevel();

/// Returns the highest level that this processor supports.
CpuLevel GetProcessorLevel();

/// Not defined by the library. A program that measures or tests the slower kernels defines it, as
/// tests/support/CpuLevelCap.cpp does, and so caps the level. It is called once, possibly before
/// main.
[[gnu::weak, gnu::visibility("default")]] CpuLevel CpuLevelCap();

}  // namespace vantry_internal
