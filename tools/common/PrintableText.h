#pragma once

#include <string>
#include <string_view>

namespace vantry_tools {

/// Text for one line of a terminal, always valid UTF-8: what is not printable and the characters of
/// `also` come as escapes, \n, \r, \t, \", \\ or \xHH.
std::string PrintableText(std::string_view text, std::string_view also = {});

}  // namespace vantry_tools
