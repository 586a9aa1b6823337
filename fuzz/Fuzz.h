#pragma once

#include <cstdint>

#include "tests/support/Attempts.h"

// A target is one function that takes any bytes; it must return, and must not stop the program:
// REQUIRE() stops it where something is not as it must be.

/// Numbers from the end of the bytes, for as long as there are any, and what is left of them.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size) {}

    unsigned int operator()() {
        unsigned int number = 0;
        for (int i = 0; i < 4 && !rest.empty(); ++i) {
            number = number << 8 | static_cast<unsigned char>(rest.back());
            rest.pop_back();
        }
        return number;
    }

    qtString rest;
};
