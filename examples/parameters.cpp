// Parameters that many programs share: how often has this one been started, and what is its name?
#include <cstdlib>
#include <iostream>

#include "VexUnix/VexRegistryUnix.h"

static qtString Read(char* name, const char* otherwise) {
    unsigned char value[64] = {};
    unsigned long length = sizeof value - 1;  // a value that fills its room has no NUL behind it
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
    std::cout << Read(greeting, "hello") << " for the " << count << ". time\n";
}
