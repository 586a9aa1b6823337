#include "tools/common/Completion.h"

#include <algorithm>
#include <cstdio>

namespace vantry_tools {

static void Offer(const std::string& text, const std::string& description) {
    const std::string line = description.substr(0, description.find('\n'));
    std::printf("=%s\t%s\n", text.c_str(), line.c_str());
}

static void OfferCommands(const CLI::App& app) {
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        Offer(command->get_name(), command->get_description());
        for (const std::string& alias : command->get_aliases()) {
            Offer(alias, command->get_description());
        }
    }
}

static void OfferOptions(const CLI::App& command) {
    for (const CLI::Option* const option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            Offer("--" + name, option->get_description());
        }
        for (const std::string& name : option->get_snames()) {
            Offer("-" + name, option->get_description());
        }
    }
}

// Offers the values that a type name lists as "{a,b}", each after `start`, or files and folders.
static void OfferValues(const CLI::Option& option, const std::string& start) {
    const std::string type = option.get_type_name();
    if (type == "FILE" || type == "DIR") {
        std::puts(type == "FILE" ? ":file" : ":folder");
    }
    std::size_t at = type.find('{');
    while (at != std::string::npos && type[at] != '}') {
        const std::size_t end = type.find_first_of(",}", at + 1);
        Offer(start + type.substr(at + 1, end - at - 1), "");
        at = end;
    }
}

// More keys than anybody reads would only keep the shell busy. A word in the shell's quotes is
// compared by the shell.
static void OfferKeys(const std::string& word, const std::vector<std::string>& given,
                      const KeyLister& keys) {
    const bool isPlain = word.find_first_of("\\\"'") == std::string::npos;
    int left = 2000;
    try {
        for (const std::string& key : keys(given)) {
            if ((!isPlain || key.compare(0, word.size(), word) == 0) && left-- > 0) {
                Offer(key, "");
            }
        }
    } catch (...) {  // a message would only disturb the command line
    }
}

// Offers what `word` may become, which follows the words `given`.
static void OfferPositional(const CLI::App& command, const std::string& word,
                            const std::vector<std::string>& given, const KeyLister& keys) {
    const std::vector<const CLI::Option*> all =
        command.get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (all.empty()) {
        return;
    }
    const CLI::Option& option = *all[std::min(given.size(), all.size() - 1)];
    if (given.size() >= all.size() && option.get_items_expected_max() <= 1) {
        return;
    }
    const std::string name = option.get_name(true);
    const auto is = [&name](std::initializer_list<const char*> names) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (is({"KEY", "GLOB", "WORD", "PREFIX"})) {
        OfferKeys(word, given, keys);
    }
    if (is({"PKG", "OTHER"})) {
        std::puts(":package");
    }
    if (is({"PATH", "FILE", "OUT", "WORD", "ARCHIVE", "KEYFILE", "SIGNATURE"})) {
        std::puts(":file");
    }
}

static const CLI::Option* FindOption(const CLI::App& command, const std::string& word) {
    const CLI::Option* const option =
        word.compare(0, 1, "-") == 0 ? command.get_option_no_throw(word) : nullptr;
    return option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
}

// Offers what "--co" or "--color=al" may become.
static void OfferOptionsOrValues(const CLI::App& command, const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
        OfferOptions(command);
    } else if (const CLI::Option* const option = FindOption(command, word.substr(0, equals))) {
        OfferValues(*option, word.substr(0, equals + 1));
    }
}

void PrintCompletions(const CLI::App& app, const std::vector<std::string>& words,
                      const KeyLister& keys) {
    const auto isOption = [](const std::string& word) { return word.size() > 1 && word[0] == '-'; };
    const CLI::App* command = &app;
    const CLI::Option* awaiting = nullptr;  // the option that the next word is the value of
    std::vector<std::string> given;
    for (std::size_t at = 0; at + 1 < words.size(); ++at) {
        const std::string& word = words[at];
        if (awaiting != nullptr) {
            awaiting = nullptr;
        } else if (isOption(word)) {
            awaiting = FindOption(*command, word);
        } else if (command != &app) {
            given.push_back(word);
        } else {
            const std::vector<const CLI::App*> named = app.get_subcommands(
                [&word](const CLI::App* candidate) { return candidate->check_name(word); });
            command = named.empty() ? command : named.front();
        }
    }
    if (awaiting != nullptr) {
        OfferValues(*awaiting, "");
    } else if (!words.empty() && words.back().compare(0, 1, "-") == 0) {
        OfferOptionsOrValues(*command, words.back());
    } else if (command == &app) {
        OfferCommands(app);
    } else {
        OfferPositional(*command, words.empty() ? "" : words.back(), given, keys);
    }
}

}  // namespace vantry_tools
