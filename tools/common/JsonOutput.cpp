#include "tools/common/JsonOutput.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "tools/common/PrintableText.h"

namespace vantry_tools {

static void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

static std::string Dump(const Json& value, int indent) {
    // JSON escapes only some control characters; the others are safe in a file alone.
    const bool ascii = isatty(STDOUT_FILENO) == 1;
    return value.dump(indent, ' ', ascii, Json::error_handler_t::replace);
}

void PrintJson(const Json& value) {
    Print(Dump(value, 2) + '\n');
}

void AddKey(Json& object, const std::string& name, std::string_view key) {
    constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(key.size() * 2);
    for (const char byte : key) {
        const auto value = static_cast<unsigned char>(byte);
        hex += digits[value >> 4];
        hex += digits[value & 15];
    }
    object[name] = IsUtf8(key) ? Json(std::string(key)) : Json();
    object[name + "_hex"] = std::move(hex);
}

JsonArrayPrinter::JsonArrayPrinter() : end("]\n") {
    vantry_tools::Print("[");
}

JsonArrayPrinter::JsonArrayPrinter(const Json& object, const std::string& name)
    : indent("  "), end("]\n}\n") {
    std::string text = Dump(object, 2);
    text.resize(text.rfind('\n'));  // before the bracket that would end the object
    vantry_tools::Print(text + ",\n  " + Dump(name, -1) + ": [");
}

void JsonArrayPrinter::Print(const Json& element) {
    vantry_tools::Print((empty ? "\n  " : ",\n  ") + indent + Dump(element, -1));
    empty = false;
}

void JsonArrayPrinter::End() {
    vantry_tools::Print((empty ? "" : '\n' + indent) + end);
}

}  // namespace vantry_tools
