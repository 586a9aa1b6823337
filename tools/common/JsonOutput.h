#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace vantry_tools {

/// An object whose members keep the order in which they were added.
using Json = nlohmann::ordered_json;

/// Prints one value and a line end on standard output. Texts must be valid UTF-8; other bytes
/// become U+FFFD. On a terminal everything but ASCII is escaped.
void PrintJson(const Json& value);

/// Adds a key: `name` is its exact text, or null if it is not UTF-8; `name`_hex is its bytes.
void AddKey(Json& object, const std::string& name, std::string_view key);

/// Prints an array element by element, so that a long one takes no memory.
///
///     JsonArrayPrinter array;
///     for (...) array.Print(element);
///     array.End();
class JsonArrayPrinter {
public:
    JsonArrayPrinter();
    /// Starts an object with the members of `object` and then the array,
    /// by `name`, as its last.
    JsonArrayPrinter(const Json& object, const std::string& name);
    void Print(const Json& element);
    void End();

private:
    const std::string indent;
    const char* const end;
    bool empty = true;
};

}  // namespace vantry_tools
