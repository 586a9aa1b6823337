#pragma once

#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace vantry_tools {

/// Returns the terminal's columns, or 80 if `descriptor` is not a terminal.
unsigned int TerminalWidth(int descriptor);

/// Colors of standard output, by the option --color. "auto" means: on a terminal, unless the
/// environment has NO_COLOR.
class Colors {
public:
    void AddTo(CLI::App& command);
    bool On() const;
    /// Returns `text` in the color of an SGR code, "31" or "1;34"; unchanged if colors are off.
    std::string Paint(std::string_view code, std::string_view text) const;

private:
    std::string when = "auto";
};

}  // namespace vantry_tools
