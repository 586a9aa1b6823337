#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "basekit/qtString.h"

namespace vantry_tools {

/// The words of a command line that name items: keys as they are shown, in quotes or not; and the
/// keys of numbers, from --number.
class KeyArguments {
public:
    /// Adds the words, whose name in the help is `name`, and the options to `command`.
    void AddTo(CLI::App& command, const char* name, const char* description);

    bool Empty() const { return words.empty() && numbers.empty(); }
    /// Takes the next key: that of a number, as long as there are any, then that of a word.
    /// @throws UsageFailure when there is none; the text says that `name` is missing
    qtString TakeKey(const char* name);
    /// Takes the next word as it is, "" when there is none.
    std::string TakeWord();
    /// All keys that are left, in the order given. A word that is a pattern and no key gives what
    /// it matches among the keys that `present` returns; itself when it matches nothing.
    std::vector<qtString> TakeKeys(const std::function<std::vector<qtString>()>& present);
    /// @throws UsageFailure when a word is left
    void RequireEnd() const;

protected:
    bool IsPattern(const std::string& word) const;

    std::deque<std::string> words;
    std::vector<std::uint32_t> numbers;
    bool raw = false;
};

/// Words that choose among the items of a package: keys, globs that match them, and beginnings: a
/// word that ends in a slash stands for all that is below it.
class KeyChoice : public KeyArguments {
public:
    /// Adds the option --prefix, too.
    void AddTo(CLI::App& command, const char* name, const char* description);

    /// The keys that are chosen, in order; all when there is no word.
    std::vector<qtString> Choose(std::vector<qtString> keys);
    /// @throws ReportedFailure, once each word that chose nothing has been named
    void FailIfUnused(const std::string& package) const;

private:
    struct Pattern {
        std::string text;
        bool isPrefix = false;
        bool used = false;

        bool Matches(const std::string& key) const;
    };

    void Prepare();
    bool Matches(const qtString& key);

    std::unordered_map<std::string, bool> exact;  // and whether it was used
    std::vector<Pattern> patterns;
    std::vector<std::string> prefixes;
};

}  // namespace vantry_tools
