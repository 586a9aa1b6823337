#pragma once

#include <string>

#include "tools/vexreg/Records.h"

namespace vantry_tools {

// Records as text that keeps every byte:
//
//     # vexreg dump 1
//     Pop/Greeting<tab>hello world
//     "line\nend"<tab>""
//     # end
//
// Key and value are each as QuoteKey() shows them. Lines without a tab are remarks; the first and
// the last tell that the text is whole.

std::string DumpRecords(const Records& records);

/// @param shown the file that the text comes from
/// @throws ToolFailure that names the file and the line, for anything that DumpRecords() does not
///         write
Records ParseDump(const std::string& text, const std::string& shown);

}  // namespace vantry_tools
