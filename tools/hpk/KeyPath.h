#pragma once

#include <string>

namespace vantry_tools {

/// Reports why a key does not name a file below a folder: it would lead out of the folder, or
/// another key names the same file. @return nullptr if it does name one
const char* WhyNotPath(const std::string& key);

}  // namespace vantry_tools
