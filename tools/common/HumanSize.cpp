#include "tools/common/HumanSize.h"

#include <string_view>

namespace vantry_tools {

std::string HumanSize(std::uint64_t bytes) {
    constexpr std::uint64_t step = 1024;
    if (bytes < step) {
        return std::to_string(bytes);
    }
    std::uint64_t unit = step;
    std::size_t power = 0;
    const auto inUnits = [&](std::uint64_t parts) { return (bytes * parts + unit - 1) / unit; };
    for (; inUnits(1) >= step; unit *= step) {
        ++power;
    }
    const std::uint64_t tenths = inUnits(10);
    std::string text = tenths < 100
                           ? std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10)
                           : std::to_string(inUnits(1));
    return text += std::string_view("KMGTPE")[power];
}

}  // namespace vantry_tools
