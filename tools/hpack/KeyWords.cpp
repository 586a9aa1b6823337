#include "tools/hpack/KeyWords.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>

#include "hpack/Hpack.h"
#include "tools/common/KeyText.h"
#include "tools/common/Tool.h"

void KeyWords::AddTo(CLI::App& command, const char* name, const char* description) {
    // Not a vector of strings: the parser would read some words as something else.
    command
        .add_option(
            name,
            [this](const CLI::results_t& given) {
                words.assign(given.begin(), given.end());
                return true;
            },
            description)
        ->expected(0, -1)
        ->allow_extra_args()
        ->type_name("");
    command.add_option("--number", numbers, "The 4-byte key of a number instead of a word")
        ->allow_extra_args(false)
        ->type_name("N");
    command.add_flag("--raw", raw, "Take words as they are: quotes are part of the key");
}

qtString KeyWords::TakeKey(const char* name) {
    if (!numbers.empty()) {
        const std::uint32_t number = numbers.front();
        numbers.erase(numbers.begin());
        return Hpack::MakeStringKey(number);
    }
    if (words.empty()) {
        throw UsageFailure(std::string(name) + " is required");
    }
    const std::string word = TakeWord();
    return raw ? word : UnquoteKey(word);
}

std::string KeyWords::TakeWord() {
    if (words.empty()) {
        return {};
    }
    std::string word = std::move(words.front());
    words.pop_front();
    return word;
}

std::vector<qtString> KeyWords::TakeKeys() {
    std::vector<qtString> keys;
    while (!Empty()) {
        keys.push_back(TakeKey("KEY"));
    }
    return keys;
}

void KeyWords::RequireEnd() const {
    if (!Empty()) {
        throw UsageFailure(words.empty() ? "there are more numbers than keys"
                                         : "too many words: " + words.front());
    }
}

void KeyChoice::Prepare() {
    while (!Empty()) {
        const bool isGlob = numbers.empty() && !raw && words.front().compare(0, 1, "\"") != 0 &&
                            words.front().find_first_of("*?[\\") != std::string::npos;
        if (isGlob) {
            globs.push_back({TakeWord()});
        } else {
            exact.emplace(TakeKey("KEY"), false);
        }
    }
}

bool KeyChoice::Matches(const qtString& key) {
    bool matches = false;
    if (const auto found = exact.find(key); found != exact.end()) {
        found->second = true;
        matches = true;
    }
    if (globs.empty()) {
        return matches;
    }
    // The C library's matching ends at a NUL; to a pattern, which can not have one, it is a byte
    // like any other.
    std::string text = key;
    std::replace(text.begin(), text.end(), '\0', '\1');
    for (Glob& glob : globs) {
        if (key == glob.pattern || fnmatch(glob.pattern.c_str(), text.c_str(), 0) == 0) {
            glob.used = true;
            matches = true;
        }
    }
    return matches;
}

std::vector<qtString> KeyChoice::Choose(std::vector<qtString> keys) {
    Prepare();
    if (!exact.empty() || !globs.empty()) {
        keys.erase(std::remove_if(keys.begin(), keys.end(),
                                  [this](const qtString& key) { return !Matches(key); }),
                   keys.end());
    }
    return keys;
}

void KeyChoice::FailIfUnused(const std::string& package) const {
    std::set<std::string> unused;
    for (const auto& [key, used] : exact) {
        if (!used) {
            unused.insert(QuoteKey(key));
        }
    }
    for (const Glob& glob : globs) {
        if (!glob.used) {
            unused.insert(glob.pattern);
        }
    }
    for (const std::string& word : unused) {
        PrintError(std::string(package).append(": no item matches ").append(word));
    }
    if (!unused.empty()) {
        throw ReportedFailure();
    }
}
