#pragma once

/// The vector instructions that the fast paths choose from; each level includes those before it.
enum class CpuLevel {
    Generic,   ///< what the compiler may use anyway
    Clmul128,  ///< SSE4.1, SSSE3, POPCNT, carry-less multiplication
    Clmul256,  ///< AVX2, BMI, BMI2, carry-less multiplication of 256 bits
    Clmul512,  ///< AVX-512 F, BW, VL, VBMI2, carry-less multiplication of 512 bits
};

/// What this processor has, found once. The environment variable VANTRY_CPU caps it: generic,
/// clmul128, clmul256 or clmul512; another value changes nothing. May be called at any time, by
/// constructors that run before the library's own too.
CpuLevel GetCpuLevel();
