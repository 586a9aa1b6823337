// The tokenizers against a walk, one character after the other.
#include "fuzz/Fuzz.h"
#include "lpstring/LpString.h"
#include "tests/support/Judges.h"

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
    FuzzedDataProvider input(data, size);
    const std::size_t skipped = input.ConsumeIntegralInRange(0, 15);  // any alignment
    const qtString separators = input.ConsumeRandomLengthString(20);
    const qtString text(input.ConsumeRemainingBytesAsString());
    const qtString shifted = text.substr(std::min(skipped, text.size()));
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
