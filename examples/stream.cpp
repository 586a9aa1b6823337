// Stores and reads a large item in segments: no block of its full size is ever needed.
//
//     stream put PKG KEY < body        a new package with this one item
//     stream get PKG KEY > body
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "hpack/Hpack.h"

// Reads into each segment's own memory.
static void ReadAll(std::FILE* in, SegBuf& body) {
    for (unsigned int filled = 0;;) {
        body.Grow(filled + SegBuf::segmentSize);
        char* run = nullptr;
        unsigned int length = 0;
        body.Locate(filled, body.size, run, length);
        const std::size_t count = std::fread(run, 1, length, in);
        filled += static_cast<unsigned int>(count);
        if (count < length) {
            body.size = filled;  // the rest of the buffer is for the next use
            return;
        }
    }
}

static void WriteAll(const SegBuf& body, std::FILE* out) {
    for (unsigned int at = 0, length = 0; at < body.size; at += length) {
        char* run = nullptr;
        body.Locate(at, body.size, run, length);
        if (std::fwrite(run, 1, length, out) != length) {
            throw std::runtime_error("cannot write");
        }
    }
}

static int Run(std::string_view command, const qtString& path, const qtString& key) {
    SegBuf body;
    Hpack package;
    if (command == "put") {
        ReadAll(stdin, body);
        package.Open(path, 'w');
        package.AddAtOffset(key, body, 0);
        package.Close();
        return 0;
    }
    if (command == "get") {
        package.Open(path, 'r');
        package.GetItem(key, body);
        package.Close();
        WriteAll(body, stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    return 2;
}

int main(int argc, char** argv) {
    try {
        const int status = argc == 4 ? Run(argv[1], argv[2], argv[3]) : 2;
        if (status == 2) {
            std::cerr << "usage: stream put|get PKG KEY\n";
        }
        return status;
    } catch (const qtxAll& error) {
        std::cerr << error.ErrorString() << "\n";
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
    }
    return 1;
}
