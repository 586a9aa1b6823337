#include "tools/common/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "tools/common/HumanSize.h"
#include "tools/common/Terminal.h"

namespace vantry_tools {

static void Write(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

ProgressBar::ProgressBar(bool quiet) : shows(!quiet && isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    Clear();
}

void ProgressBar::Clear() {
    if (drawn) {
        Write("\r\033[K");
        drawn = false;
    }
}

void ProgressBar::Draw(const char* status, int current, int total, bool bytes) {
    if (!shows) {
        return;
    }
    if (phase != status) {
        phase = status;
        phaseStart = Clock::now();
    }
    std::string line(status);
    if (total > 0) {
        constexpr std::uint64_t barWidth = 30;
        const auto all = static_cast<unsigned int>(total);
        const auto done = static_cast<unsigned int>(std::clamp(current, 0, total));
        const auto filled = static_cast<std::size_t>(barWidth * done / all);
        line += "  [" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] " +
                std::to_string(std::uint64_t{100} * done / all) + '%' + Amounts(done, all, bytes);
    }
    // A line that wraps could not be drawn over.
    line.resize(std::min<std::size_t>(line.size(), TerminalWidth(STDERR_FILENO) - 1));
    Write('\r' + line + "\033[K");
    drawn = true;
}

static std::string TimeLeft(double seconds) {
    const auto rounded = static_cast<std::uint64_t>(seconds) + 1;
    return rounded < 120 ? std::to_string(rounded) + " s left"
                         : std::to_string(rounded / 60) + " min left";
}

std::string ProgressBar::Amounts(unsigned int current, unsigned int total, bool bytes) {
    std::string text = bytes ? "  " + HumanSize(current) + " of " + HumanSize(total) : "";
    const double elapsed = std::chrono::duration<double>(Clock::now() - phaseStart).count();
    if (current == 0 || elapsed < 1) {  // too early for an estimate
        return text;
    }
    const double rate = current / elapsed;
    if (bytes) {
        text += ", " + HumanSize(static_cast<std::uint64_t>(rate)) + "/s";
    }
    return text + (text.empty() ? "  " : ", ") + TimeLeft((total - current) / rate);
}

}  // namespace vantry_tools
