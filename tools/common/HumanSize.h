#pragma once

#include <cstdint>
#include <string>

namespace vantry_tools {

/// Bytes in at most 4 characters: "512", "1.5K", "12M"; rounded up.
std::string HumanSize(std::uint64_t bytes);

}  // namespace vantry_tools
