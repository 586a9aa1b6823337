#include "tools/common/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>

namespace vantry_tools {

unsigned int TerminalWidth(int descriptor) {
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

void Colors::AddTo(CLI::App& command) {
    command.add_option("--color", when, "Colors: auto, always or never; auto obeys NO_COLOR")
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

}  // namespace vantry_tools
