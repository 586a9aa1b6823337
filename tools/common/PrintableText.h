#pragma once

#include <string>
#include <string_view>

namespace vantry_tools {

/// Text for one line of a terminal, always valid UTF-8. Characters that are not printable, and
/// those of `also`, are escaped: \n, \r, \t, \", \\ or \xHH. Printable means visible: control
/// characters, zero-width characters and marks that change the direction of writing are not.
/// @param keep characters that stay as they are although they are not printable
std::string PrintableText(std::string_view text, std::string_view also = {},
                          std::string_view keep = {});

/// PrintableText() for text that arrives in pieces, which may divide a character. Line feeds and
/// tabs stay.
class PrintableStream {
public:
    /// Returns what can be shown once `piece` has arrived.
    std::string Next(std::string_view piece);
    /// Returns what remains at the end of the text.
    std::string End();

private:
    std::string held;  // the start of a character
};

/// Whether the text is valid UTF-8.
bool IsUtf8(std::string_view text);

}  // namespace vantry_tools
