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

/// Returns a hint, such as "; 12 items begin with sub/", for a key that does not exist but looks
/// like a folder of others; "" if there are none.
std::string FolderHint(const std::vector<qtString>& keys, const std::string& key);

/// The words of a command line that name items: keys as the tools show them, and the keys of
/// numbers, from --number.
class KeyArguments {
public:
    /// Adds the words, which the help calls `name`, and the options to `command`.
    void AddTo(CLI::App& command, const char* name, const char* description);

    bool Empty() const { return words.empty() && numbers.empty(); }
    /// Removes and returns the next key: first those of numbers, then those of words.
    /// @throws UsageFailure "NAME is required" if there is none
    qtString TakeKey(const char* name);
    /// Removes and returns the next word, or "" if there is none.
    std::string TakeWord();
    /// Removes and returns all remaining keys in the order given. A pattern that is not itself a
    /// key stands for the keys that it matches, or for itself if it matches none.
    /// @param present returns the keys of the package, ascending
    std::vector<qtString> TakeKeys(const std::function<std::vector<qtString>()>& present);
    /// @throws UsageFailure if a word or number remains
    void RequireEnd() const;

protected:
    bool IsPattern(const std::string& word) const;

    std::deque<std::string> words;
    std::vector<std::uint32_t> numbers;
    bool raw = false;
};

/// Words that select items of a package: keys, globs that match them, and prefixes, which are words
/// that end in a slash.
class KeyChoice : public KeyArguments {
public:
    /// Adds the words and the options, --prefix among them.
    void AddTo(CLI::App& command, const char* name, const char* description);

    /// Returns the selected ones of `keys`, in order; all if there are no words.
    std::vector<qtString> Choose(const std::vector<qtString>& keys);
    /// Whether a key, perhaps one that no item has, is selected. Call Choose() first.
    bool Selects(const qtString& key);
    /// Reports each word that selected nothing. @throws ReportedFailure if there is one
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

    struct Use {
        bool used = false;
        std::string hint;
    };

    std::unordered_map<std::string, Use> exact;
    std::vector<Pattern> patterns;
    std::vector<std::string> prefixes;
};

}  // namespace vantry_tools
