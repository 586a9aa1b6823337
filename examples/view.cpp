#include "hpack/HpackView.h"

#include <iostream>

#include "hpack/Hpack.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: view PACKAGE PREFIX\n";
        return 2;
    }
    try {
        const HpackView package = HpackView::Map(argv[1]);
        for (const HpackView::Item item : package.Prefix(argv[2])) {
            std::cout << item.Key() << ": " << item.Body() << "\n";
        }
        if (const auto body = package.Find("index")) {
            std::cout << "index has " << body->size() << " bytes\n";
        }
    } catch (const qtxAll& error) {
        std::cerr << error.ErrorString() << "\n";
        return 1;
    }
}
