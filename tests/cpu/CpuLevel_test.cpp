#include "cpu/CpuLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "cpu/PolyRemainder.h"
#include "cpu/TokenEdges.h"

namespace vantry_internal {
namespace {

// Runs once for each value of the variable.
TEST(CpuLevel, SelectsTheKernelsOfTheCappedLevel) {
    const char* const value = std::getenv("VANTRY_CPU");
    const std::string cap = value == nullptr ? "clmul512" : value;
    const std::string names[] = {"generic", "clmul128", "clmul256", "clmul512"};
    const auto capped =
        static_cast<CpuLevel>(std::find(std::begin(names), std::end(names), cap) - names);
    const CpuLevel level = std::min(GetProcessorLevel(), capped);
    EXPECT_EQ(GetCpuLevel(), level);
#if defined(__x86_64__) || defined(__i386__)
    const TokenEdges* const edges[] = {&tokenEdgesGeneric, &tokenEdges128, &tokenEdges256,
                                       &tokenEdges512};
    const SharedRemainder shared[] = {SharedRemainderTables, SharedRemainder128, SharedRemainder256,
                                      SharedRemainder512};
    const AnyRemainder any[] = {AnyRemainderTables, AnyRemainder128, AnyRemainder256,
                                AnyRemainder512};
    const auto number = static_cast<std::size_t>(level);
    EXPECT_EQ(&GetTokenEdges(), edges[number]);
    EXPECT_EQ(sharedRemainder.load(), shared[number]);
    EXPECT_EQ(GetPolyRemainder().divide, any[number]);
#endif
}

}  // namespace
}  // namespace vantry_internal
