#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "tools/common/Terminal.h"
#include "tools/hpk/Layout.h"

namespace vantry_tools {

/// Draws a package on standard output in lines of `width` columns: colored blocks, or letters.
void DrawMapAsText(const Layout& layout, const std::string& title, const Colors& colors,
                   unsigned int width);

/// Draws a package as an SVG picture; the pointer shows the names of items.
std::string DrawMapAsSvg(const Layout& layout, const std::string& title);

/// Draws a package as a page to look into, with zoom and a list of items, without other files.
std::string DrawMapAsHtml(const Layout& layout, const std::string& title);

/// Escapes text for XML and HTML, between tags and in quotes.
std::string EscapeMarkup(std::string_view text);

}  // namespace vantry_tools
