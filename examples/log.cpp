// Splits a log into words without copying one, and counts its lines by the hash of their shape.
//
//     log < LOG          lines that differ only in numbers count as one
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <map>

#include "lpstring/LpString.h"
#include "lpstring/LpStringHash.h"

// Extends the hash word by word, without assembling the shape.
static unsigned int HashShape(const std::vector<LpCString>& words) {
    const Poly_Hash<32>& hash = LpStringHash::s_polyHash;
    unsigned int value = hash.InitialValue();
    for (const LpCString& word : words) {
        const char* const begin = word.Data();
        const char* const end = begin + word.Length();
        const bool hasDigit = std::any_of(begin, end, [](char c) { return c >= '0' && c <= '9'; });
        value = hasDigit ? hash.Extend(value, "#", 1) : hash.Extend(value, begin, word.Length());
        value = hash.Extend(value, " ", 1);
    }
    return value;
}

int main() {
    // The views point into this text, so it has to outlive them.
    const qtString text(std::istreambuf_iterator<char>(std::cin), {});
    std::vector<LpCString> lines;
    std::vector<LpCString> words;
    std::map<unsigned int, std::pair<int, LpCString>> shapes;
    LpTokenize(text, lines, '\n');
    for (const LpCString& line : lines) {
        LpTokenize(line, words);
        auto& [count, first] = shapes[HashShape(words)];
        first = count++ == 0 ? line : first;
    }
    for (const auto& [hash, shape] : shapes) {
        std::cout << std::hex << std::setw(8) << std::setfill('0') << hash << std::dec << "  "
                  << shape.first << " times  " << shape.second.ToString() << "\n";
    }
}
