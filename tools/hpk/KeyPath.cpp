#include "tools/hpk/KeyPath.h"

#include <algorithm>
#include <string_view>

namespace vantry_tools {

const char* WhyNotPath(const std::string& key) {
    if (key.empty()) {
        return "an empty key names no file";
    }
    if (key.front() == '/') {
        return "an absolute path";
    }
    if (key.find('\0') != std::string::npos) {
        return "no file name can have a NUL";
    }
    for (std::size_t at = 0; at <= key.size();) {
        const std::size_t end = std::min(key.find('/', at), key.size());
        const std::string_view part = std::string_view(key).substr(at, end - at);
        if (part == "..") {
            return "the path has a \"..\"";
        }
        // The same file would have two names.
        if (part.empty() || part == ".") {
            return "the path has an empty part or a \".\"";
        }
        at = end + 1;
    }
    return nullptr;
}

}  // namespace vantry_tools
