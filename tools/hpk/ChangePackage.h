#pragma once

#include <functional>
#include <string>

#include "hpack/Hpack.h"
#include "tools/common/LongWork.h"

namespace vantry_tools {

using PackageChange = std::function<void(Hpack&, CTProgress&)>;

/// Changes an existing package by HpackUpdate(), as long work.
/// @throws PackageFailure, SystemError, Interrupted, and what `change` throws
void ChangePackage(const std::string& path, bool quiet, const PackageChange& change);

}  // namespace vantry_tools
