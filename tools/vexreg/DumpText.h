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
// Keys and values are quoted by QuoteKey(). Lines that begin with # and have no tab are comments.
// The first and the last line prove that the text is complete.

std::string DumpRecords(const Records& records);

/// @param shown the name of the text's file
/// @throws ToolFailure with file and line for anything that DumpRecords() does not write
Records ParseDump(const std::string& text, const std::string& shown);

}  // namespace vantry_tools
