#include <cstdio>

#include "Vantry/VantryVersion.h"
#include "Vantry/qtGeneric2.h"
#include "hpack/Hpack.h"

// What the libraries throw is caught here by its bases: both sides have to agree on the types.
int main() {
    char version[11];
    GetVantryVersion(version);
    std::printf("%s\n", version);
    try {
        generic_set_tempdir("");
    } catch (const qtxAll& error) {
        std::printf("%s: %s\n", error.BaseString(), error.SpecificString());
    }
    try {
        Hpack package;
        package.Open("", 'r');
    } catch (const qtXbase& error) {
        std::printf("%s: %s\n", error.BaseString(), error.Text());
    }
    return 0;
}
