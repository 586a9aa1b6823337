#include "tools/hpk/InputText.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tools/common/Failures.h"
#include "tools/common/System.h"

namespace vantry_tools {

std::string ReadInputText(const std::string& path) {
    const bool isInput = path == "-";
    const FileDescriptor file(isInput ? dup(STDIN_FILENO)
                                      : open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        throw SystemError(errno, "cannot open", path);
    }
    std::string text;
    std::string piece(std::size_t{64} * 1024, '\0');
    while (const std::size_t count = ReadSome(file.Get(), piece.data(), piece.size(),
                                              isInput ? "standard input" : path)) {
        text.append(piece, 0, count);
    }
    return text;
}

}  // namespace vantry_tools
