#pragma once

#include <string>

namespace vantry_tools {

/// Reads all of a file that a command line names; "-" is standard input. @throws ToolFailure
std::string ReadInputText(const std::string& path);

}  // namespace vantry_tools
