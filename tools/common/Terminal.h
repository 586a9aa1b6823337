#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <string_view>

namespace vantry_tools {

// What output for people's eyes needs: width, colour, sizes.

/// The columns of the terminal that `descriptor` is; 80 where it is none.
unsigned int TerminalWidth(int descriptor);

/// Colours of standard output, by the option --color: "auto" means on a terminal, and not where the
/// environment has a NO_COLOR.
class Colors {
public:
    void AddTo(CLI::App& command);
    bool On() const;
    /// `text` in a colour by its SGR code, "31" or "1;34"; as it is without colours.
    std::string Paint(std::string_view code, std::string_view text) const;

private:
    std::string when = "auto";
};

/// Bytes as people read them, in at most 4 characters: "512", "1.5K", "12M"; rounded up.
std::string HumanSize(std::uint64_t bytes);

}  // namespace vantry_tools
