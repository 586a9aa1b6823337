#include "tools/common/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "tools/common/Terminal.h"

namespace vantry_tools {

static void Write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

ProgressBar::ProgressBar(bool quiet) : shows(!quiet && isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (drawn) {
        Write("\r\033[K");
    }
}

void ProgressBar::Draw(const char* status, int current, int total) {
    if (!shows) {
        return;
    }
    std::string line(status);
    if (total > 0) {
        constexpr unsigned int barWidth = 30;
        const int done = std::clamp(current, 0, total);
        const auto share = [=](unsigned int of) {
            return static_cast<std::size_t>(std::uint64_t{of} * static_cast<unsigned int>(done) /
                                            static_cast<unsigned int>(total));
        };
        const std::size_t filled = share(barWidth);
        line += "  [" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] " +
                std::to_string(share(100)) + '%';
    }
    // A line that wraps could not be drawn over.
    line.resize(std::min<std::size_t>(line.size(), TerminalWidth(STDERR_FILENO) - 1));
    Write('\r' + line + "\033[K");
    drawn = true;
}

}  // namespace vantry_tools
