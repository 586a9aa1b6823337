#pragma once

#include <chrono>
#include <string>

namespace vantry_tools {

/// Shows the progress of long work in one line of standard error, which is drawn over and over:
///
///     packing  [###########-------------------]  37%  126M of 340M, 85M/s, 3 s left
///
/// It draws only on a terminal.
class ProgressBar {
public:
    explicit ProgressBar(bool quiet);
    /// Clears the line.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// @param total 0 if it is not known: only `status` is shown then
    void Draw(const char* status, int current, int total, bool bytes);
    /// Clears the line, so that other text can be written.
    void Clear();

private:
    using Clock = std::chrono::steady_clock;

    std::string Amounts(unsigned int current, unsigned int total, bool bytes);

    const bool shows;
    bool drawn = false;
    std::string phase;  // by its status
    Clock::time_point phaseStart;
};

}  // namespace vantry_tools
