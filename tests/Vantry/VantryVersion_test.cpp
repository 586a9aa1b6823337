#include "Vantry/VantryVersion.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(VantryVersion, WritesElevenBytes) {
    for (const auto function : {GetVantryVersion, GetQuoVersion}) {
        char buffer[16];
        std::memset(buffer, '#', sizeof buffer);
        function(buffer);
        EXPECT_EQ(std::memcmp(buffer, "1.0.0.79.0\0#####", 16), 0);
    }
}

}  // namespace
