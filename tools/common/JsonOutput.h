#pragma once

#include <nlohmann/json.hpp>

namespace vantry_tools {

/// An object whose members keep the order in which they were added.
using Json = nlohmann::ordered_json;

/// Prints one value and a line end on standard output. Texts must be valid UTF-8, as QuoteKey()
/// gives them; what is not comes out as U+FFFD.
void PrintJson(const Json& value);

/// Prints an array element by element, so that a long one needs no memory.
class JsonArrayPrinter {
public:
    JsonArrayPrinter();
    void Print(const Json& element);
    void End();

private:
    bool empty = true;
};

}  // namespace vantry_tools
