#include "Vantry/VantryVersion.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace {

TEST(VantryVersion, WritesElevenBytesUnderUnmangledNames) {
    const std::pair<const char*, void (*)(char*)> functions[] = {
        {"GetVantryVersion", GetVantryVersion}, {"GetQuoVersion", GetQuoVersion}};
    for (const auto& [name, function] : functions) {
        EXPECT_EQ(dlsym(RTLD_DEFAULT, name), reinterpret_cast<void*>(function)) << name;
        char buffer[16];
        std::memset(buffer, '#', sizeof buffer);
        function(buffer);
        EXPECT_EQ(std::memcmp(buffer, "1.0.0.79.0\0#####", 16), 0) << name;
    }
}

}  // namespace
