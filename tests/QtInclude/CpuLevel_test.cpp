#include "QtInclude/CpuLevel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

TEST(CpuLevel, IsCappedByTheEnvironment) {
    const char* const value = std::getenv("VANTRY_CPU");
    const std::string cap = value == nullptr ? "" : value;
    EXPECT_TRUE(cap != "generic" || GetCpuLevel() == CpuLevel::Generic);
    EXPECT_TRUE(cap != "clmul128" || GetCpuLevel() <= CpuLevel::Clmul128);
    EXPECT_TRUE(cap != "clmul256" || GetCpuLevel() <= CpuLevel::Clmul256);
}

}  // namespace
