#include "tools/common/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace vantry_tools {

unsigned int TerminalWidth(int descriptor) {
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

void Colors::AddTo(CLI::App& command) {
    command.add_option("--color", when, "Colours: auto, always or never; auto heeds NO_COLOR")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
}

bool Colors::On() const {
    if (when != "auto") {
        return when == "always";
    }
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refused == nullptr || *refused == '\0') && isatty(STDOUT_FILENO) == 1 &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string Colors::Paint(std::string_view code, std::string_view text) const {
    std::string painted(text);
    if (On()) {
        painted.insert(0, "\033[" + std::string(code) + 'm').append("\033[0m");
    }
    return painted;
}

std::string HumanSize(std::uint64_t bytes) {
    constexpr std::uint64_t step = 1024;
    if (bytes < step) {
        return std::to_string(bytes);
    }
    std::uint64_t unit = step;
    std::size_t power = 0;
    const auto inUnits = [&](std::uint64_t parts) { return (bytes * parts + unit - 1) / unit; };
    for (; inUnits(1) >= step; unit *= step) {
        ++power;
    }
    const std::uint64_t tenths = inUnits(10);
    std::string text = tenths < 100
                           ? std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10)
                           : std::to_string(inUnits(1));
    return text += std::string_view("KMGTPE")[power];
}

}  // namespace vantry_tools
