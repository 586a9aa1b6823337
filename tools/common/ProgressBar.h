#pragma once

namespace vantry_tools {

/// Shows how far long work is, in one line of standard error that is drawn again and again:
///
///     packing  [###########-------------------]  37%
///
/// It draws only on a terminal, and nothing at all for work that is done at once.
class ProgressBar {
public:
    explicit ProgressBar(bool quiet);
    /// Clears the line.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// @param total 0 when it is not known: only `status` is shown then
    void Draw(const char* status, int current, int total);

private:
    const bool shows;
    bool drawn = false;
};

}  // namespace vantry_tools
