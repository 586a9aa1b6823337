#include "tools/hpk/KeyArguments.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "hpack/Hpack.h"
#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"

namespace vantry_tools {

void KeyArguments::AddTo(CLI::App& command, const char* name, const char* description) {
    // Not a vector of strings: the parser would interpret some words.
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

qtString KeyArguments::TakeKey(const char* name) {
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

std::string KeyArguments::TakeWord() {
    if (words.empty()) {
        return {};
    }
    std::string word = std::move(words.front());
    words.pop_front();
    return word;
}

bool KeyArguments::IsPattern(const std::string& word) const {
    return !raw && word.compare(0, 1, "\"") != 0 &&
           word.find_first_of("*?[\\") != std::string::npos;
}

static std::vector<qtString> Expand(const std::string& glob, const std::vector<qtString>& present) {
    std::vector<qtString> keys;
    if (!std::binary_search(present.begin(), present.end(), qtString(glob))) {
        std::copy_if(present.begin(), present.end(), std::back_inserter(keys),
                     [&glob](const qtString& key) { return MatchesGlob(glob, key); });
    }
    return keys.empty() ? std::vector<qtString>{glob} : keys;
}

std::vector<qtString> KeyArguments::TakeKeys(
    const std::function<std::vector<qtString>()>& present) {
    std::vector<qtString> keys;
    std::vector<qtString> all;
    while (!Empty()) {
        if (!numbers.empty() || !IsPattern(words.front())) {
            keys.push_back(TakeKey("KEY"));
            continue;
        }
        if (all.empty()) {
            all = present();
        }
        const std::vector<qtString> some = Expand(TakeWord(), all);
        keys.insert(keys.end(), some.begin(), some.end());
    }
    return keys;
}

void KeyArguments::RequireEnd() const {
    if (!Empty()) {
        throw UsageFailure(words.empty() ? "there are more numbers than keys"
                                         : "too many words: " + words.front());
    }
}

void KeyChoice::AddTo(CLI::App& command, const char* name, const char* description) {
    KeyArguments::AddTo(command, name, description);
    command.add_option("--prefix", prefixes, "The items whose keys start with this")
        ->allow_extra_args(false)
        ->type_name("TEXT");
}

void KeyChoice::Prepare() {
    while (!Empty()) {
        const bool isWord = numbers.empty();
        if (isWord && IsPattern(words.front())) {
            patterns.push_back({TakeWord()});
        } else if (const qtString key = TakeKey("KEY");
                   isWord && !raw && !key.empty() && key.back() == '/') {
            patterns.push_back({key, true});
        } else {
            exact.emplace(key, Use{});
        }
    }
    for (const std::string& prefix : prefixes) {
        patterns.push_back({raw ? prefix : UnquoteKey(prefix), true});
    }
}

bool KeyChoice::Pattern::Matches(const std::string& key) const {
    return isPrefix ? key.compare(0, text.size(), text) == 0
                    : key == text || MatchesGlob(text, key);
}

bool KeyChoice::Matches(const qtString& key) {
    bool matches = false;
    if (const auto found = exact.find(key); found != exact.end()) {
        found->second.used = true;
        matches = true;
    }
    for (Pattern& pattern : patterns) {
        if (pattern.Matches(key)) {
            pattern.used = true;
            matches = true;
        }
    }
    return matches;
}

std::vector<qtString> KeyChoice::Choose(const std::vector<qtString>& keys) {
    Prepare();
    std::vector<qtString> chosen;
    std::copy_if(keys.begin(), keys.end(), std::back_inserter(chosen),
                 [this](const qtString& key) { return Selects(key); });
    for (auto& [key, use] : exact) {
        if (!use.used) {
            use.hint = FolderHint(keys, key);
        }
    }
    return chosen;
}

bool KeyChoice::Selects(const qtString& key) {
    return (exact.empty() && patterns.empty()) || Matches(key);
}

std::string FolderHint(const std::vector<qtString>& keys, const std::string& key) {
    const std::string folder = !key.empty() && key.back() == '/' ? key : key + '/';
    const auto count = std::count_if(keys.begin(), keys.end(), [&](const qtString& other) {
        return other.compare(0, folder.size(), folder) == 0;
    });
    if (count == 0) {
        return {};
    }
    return "; " + std::to_string(count) + (count == 1 ? " item begins" : " items begin") +
           " with " + QuoteKey(folder);
}

void KeyChoice::FailIfUnused(const std::string& package) const {
    std::set<std::string> unused;
    for (const auto& [key, use] : exact) {
        if (!use.used) {
            unused.insert(QuoteKey(key) + use.hint);
        }
    }
    for (const Pattern& pattern : patterns) {
        if (!pattern.used) {
            unused.insert(pattern.isPrefix ? QuoteKey(pattern.text) : pattern.text);
        }
    }
    for (const std::string& word : unused) {
        PrintError(std::string(package).append(": no item matches ").append(word));
    }
    if (!unused.empty()) {
        throw ReportedFailure();
    }
}

}  // namespace vantry_tools
