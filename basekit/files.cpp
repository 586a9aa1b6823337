#include "basekit/files.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>

int qtStringRead(qtString& content, const qtString& path) {
    const auto close = [](std::FILE* file) { std::fclose(file); };
    const std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(path.c_str(), "rbe"), close);
    if (file == nullptr) {
        return -errno;
    }
    qtString read;
    char block[65536];
    std::size_t count;
    while ((count = std::fread(block, 1, sizeof block, file.get())) != 0) {
        read.append(block, count);
    }
    if (std::ferror(file.get()) != 0) {
        return errno != 0 ? -errno : -EIO;
    }
    content = std::move(read);
    return 0;
}

int IsFileOrDirectory(const qtString& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        return 0;
    }
    return S_ISDIR(status.st_mode) ? 2 : 1;
}
