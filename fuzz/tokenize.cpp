#include "fuzz/Fuzz.h"
#include "lpstring/LpString.h"
#include "tests/support/Walk.h"

template <class View, class String, class... Separators>
static void Compare(const String& text, const String& set, const Separators&... separators) {
    std::vector<View> tokens;
    LpTokenize(View(text), tokens, separators...);
    const std::vector<String> expected =
        Walk(text, [&](auto c) { return set.find(c) != String::npos; });
    REQUIRE(tokens.size() == expected.size());
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        REQUIRE(tokens[i].ToString() == expected[i]);
        REQUIRE(tokens[i].Data() >= text.data());
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::size_t skipped = input() % 16;  // any alignment
    const std::size_t count = input() % 20;
    const qtString separators = input.rest.substr(0, count);
    const qtString shifted = input.rest.substr(std::min(skipped, input.rest.size()));
    const qtString first = separators.substr(0, 1);
    Compare<LpCString>(shifted, separators, separators);
    Compare<LpCString>(shifted, qtString(" \t\n\v\f\r"));
    const qtWString wide(shifted.begin(), shifted.end());
    const qtWString wideSeparators(separators.begin(), separators.end());
    Compare<LpWString>(wide, wideSeparators, wideSeparators);
    if (!separators.empty()) {
        Compare<LpCString>(shifted, first, separators[0]);
        Compare<LpWString>(wide, qtWString(1, wideSeparators[0]), wideSeparators[0]);
    }
    return 0;
}
