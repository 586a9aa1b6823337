// Parameters shared by many programs: how often this one has run, and whom it greets.
#include <cstdlib>
#include <iostream>

#include "VexUnix/VexRegistryUnix.h"

static qtString Read(char* name, const char* otherwise) {
    unsigned char value[64] = {};
    unsigned long length = sizeof value - 1;  // a value that fills the array has no terminating NUL
    const bool found = GetPopRegParam(name, value, &length) == 0;
    return found ? qtString(reinterpret_cast<const char*>(value)) : qtString(otherwise);
}

int main() {
    char starts[] = "Starts";
    qtString count = std::to_string(1 + std::strtol(Read(starts, "0").c_str(), nullptr, 10));
    unsigned char* const bytes = reinterpret_cast<unsigned char*>(count.data());
    if (SetPopRegParam(starts, 0, bytes, count.size()) != 0) {
        std::cerr << "cannot store Pop/Starts: " << UnixRegistry::LastError() << "\n";
        return 1;
    }
    char greeting[] = "Greeting";
    std::cout << Read(greeting, "hello") << ", run " << count << "\n";
}
