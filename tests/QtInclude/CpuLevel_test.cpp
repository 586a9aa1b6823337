#include "QtInclude/CpuLevel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

namespace {

TEST(CpuLevel, IsCappedByTheEnvironment) {
    const std::map<std::string, CpuLevel> caps = {{"generic", CpuLevel::Generic},
                                                  {"clmul128", CpuLevel::Clmul128},
                                                  {"clmul256", CpuLevel::Clmul256}};
    const char* const value = std::getenv("VANTRY_CPU");
    const auto cap = caps.find(value == nullptr ? "" : value);
    EXPECT_LE(GetCpuLevel(), cap == caps.end() ? CpuLevel::Clmul512 : cap->second);
}

}  // namespace
