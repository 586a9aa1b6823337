// The library reads the environment variables that are documented, and no others.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "VexUnix/VexRegistryUnix.h"
#include "lpstring/LpString.h"
#include "lpstring/LpStringHash.h"

// Names asked for since the program was loaded, before its constructors run.
static char s_names[200][32];
static std::size_t s_count;

static char* Look(const char* name) {
    std::strncpy(s_names[s_count++ % 200], name, 31);
    const std::size_t length = std::strlen(name);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=') {
            return *entry + length + 1;
        }
    }
    return nullptr;
}

// They come before the C library's.
extern "C" {
[[gnu::visibility("default")]] char* getenv(const char* name) noexcept {
    return Look(name);
}
[[gnu::visibility("default")]] char* secure_getenv(const char* name) noexcept {
    return Look(name);
}
}

namespace {

TEST(Environment, OnlyDocumentedVariablesAreRead) {
    setenv("BASEKIT_REGISTRY", "/no/such/folder/registry", 1);
    std::vector<LpCString> tokens;
    LpTokenize("a b", tokens);
    LpStringHash::s_polyHash.Hash("hello world");
    Poly_Hash<32>(16, 1, 1).Hash(qtString(5000, 'a'));
    char name[] = "name";
    unsigned char value[8];
    unsigned long length = sizeof value;
    GetTraceRegParam(name, value, &length);

    const std::string documented[] = {"TMPDIR", "HOME", "BASEKIT_REGISTRY", "BASEKIT_TRACE",
                                      "XDG_DATA_HOME"};
    const std::string ofTestPrograms[] = {"GTEST_", "TEST_", "XML_", "TESTBRIDGE_", "TERM"};
    for (std::size_t i = 0; i < std::min<std::size_t>(s_count, 200); ++i) {
        const std::string read = s_names[i];
        const bool known =
            std::find(std::begin(documented), std::end(documented), read) != std::end(documented);
        const bool others = std::any_of(std::begin(ofTestPrograms), std::end(ofTestPrograms),
                                        [&read](const std::string& prefix) {
                                            return read.compare(0, prefix.size(), prefix) == 0;
                                        });
        EXPECT_TRUE(known || others) << read;
    }
    EXPECT_TRUE(std::any_of(std::begin(s_names), std::end(s_names), [](const char* read) {
        return std::strcmp(read, "BASEKIT_REGISTRY") == 0;
    }));
}

}  // namespace
