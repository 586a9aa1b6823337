#include "tools/common/JsonOutput.h"

#include <cstdio>
#include <string>

namespace vantry_tools {

static void PrintValue(const Json& value, int indent) {
    const std::string text = value.dump(indent, ' ', false, Json::error_handler_t::replace);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void PrintJson(const Json& value) {
    PrintValue(value, 2);
    std::putchar('\n');
}

JsonArrayPrinter::JsonArrayPrinter() {
    std::putchar('[');
}

void JsonArrayPrinter::Print(const Json& element) {
    std::fputs(empty ? "\n  " : ",\n  ", stdout);
    empty = false;
    PrintValue(element, -1);
}

void JsonArrayPrinter::End() {
    std::fputs(empty ? "]\n" : "\n]\n", stdout);
}

}  // namespace vantry_tools
