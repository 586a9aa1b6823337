#include <iostream>
#include <system_error>

#include "hpack/HpackUpdate.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: durable_update PACKAGE KEY BODY\n";
        return 2;
    }
    try {
        HpackUpdate(argv[1], [&](Hpack& package) { package.AddOrUpdate(argv[2], argv[3]); });
    } catch (const qtxAll& error) {  // of the package
        std::cerr << error.ErrorString() << "\n";
        return 1;
    } catch (const std::system_error& error) {  // of the file
        std::cerr << error.what() << "\n";
        return 1;
    }
}
