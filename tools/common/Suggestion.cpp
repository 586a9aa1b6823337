#include "tools/common/Suggestion.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

namespace vantry_tools {

// Commands and options of archivers, shells and databases, and the commands here that do the same.
// Where both tools have such a command, the first that the tool knows counts.
static constexpr std::pair<std::string_view, std::string_view> synonyms[] = {
    {"O", "get"},
    {"V", "--version"},
    {"a", "add"},
    {"add", "set"},
    {"append", "add"},
    {"backup", "dump"},
    {"cat", "get"},
    {"commands", "--help"},
    {"copy", "get"},
    {"cp", "get"},
    {"create", "set"},
    {"d", "rm"},
    {"del", "rm"},
    {"dir", "list"},
    {"e", "extract"},
    {"ef", "get"},
    {"extract-file", "get"},
    {"find", "list"},
    {"fsck", "check"},
    {"gc", "compact"},
    {"insert", "put"},
    {"keys", "list"},
    {"l", "list"},
    {"move", "mv"},
    {"new", "create"},
    {"open", "list"},
    {"pack", "create"},
    {"print", "get"},
    {"put", "set"},
    {"r", "add"},
    {"read", "get"},
    {"remove", "rm"},
    {"repair", "recover"},
    {"replace", "put"},
    {"restore", "load"},
    {"salvage", "recover"},
    {"select", "list"},
    {"show", "get"},
    {"shrink", "compact"},
    {"stat", "info"},
    {"store", "put"},
    {"store", "set"},
    {"tables", "list"},
    {"test", "check"},
    {"to-stdout", "get"},
    {"type", "get"},
    {"u", "add"},
    {"unlink", "rm"},
    {"unpack", "extract"},
    {"unset", "rm"},
    {"unzip", "extract"},
    {"update", "add"},
    {"vacuum", "compact"},
    {"verify", "check"},
    {"version", "--version"},
    {"write", "put"},
    {"write", "set"},
    {"zip", "create"},
};

// Options of other tools within a command, and how to get their effect here.
static constexpr struct {
    std::string_view command;
    std::string_view option;
    std::string_view hint;
} optionSynonyms[] = {
    {"rm", "-r", "a pattern such as 'sub/*'"},
    {"rm", "-R", "a pattern such as 'sub/*'"},
    {"rm", "--recursive", "a pattern such as 'sub/*'"},
    {"extract", "-d", "-C"},
    {"extract", "-O", "hpk get"},
    {"extract", "-p", "hpk get"},
    {"extract", "--to-stdout", "hpk get"},
    {"list", "-v", "-l"},
    {"list", "--verbose", "--long"},
    {"create", "-r", "PATH: a folder is packed with all below it"},
};

static std::string_view Unsigned(std::string_view word) {
    word.remove_prefix(std::min(word.find_first_not_of("-."), word.size()));
    return word;
}

// The command that does what the word does elsewhere: tar's "xvf" with or without a dash,
// sqlite3's ".tables" and "-Ax".
static std::string_view Synonym(std::string_view word, const std::vector<std::string>& names) {
    const auto known = [&names](std::string_view name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    word = Unsigned(word);
    for (const auto& [other, command] : synonyms) {
        if (other == word && known(command)) {
            return command;
        }
    }
    if (word.size() > 1 && word.front() == 'A') {
        word.remove_prefix(1);
    }
    if (!word.empty() && known("extract") &&
        word.find_first_not_of("ctxruvfzjJ") == std::string_view::npos) {
        const char mode = word.front();
        return mode == 'c' ? "create" : mode == 't' ? "list" : mode == 'x' ? "extract" : "add";
    }
    return {};
}

// How many letters have to be changed, added, dropped or swapped with the next.
static std::size_t Distance(std::string_view from, std::string_view to) {
    std::vector<std::vector<std::size_t>> steps(from.size() + 1,
                                                std::vector<std::size_t>(to.size() + 1));
    std::iota(steps[0].begin(), steps[0].end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        steps[i][0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t change = from[i - 1] == to[j - 1] ? 0 : 1;
            steps[i][j] =
                std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
            }
        }
    }
    return steps[from.size()][to.size()];
}

static std::string Closest(const std::string& word, const std::vector<std::string>& names) {
    std::string closest;
    std::size_t fewest = word.size() < 5 ? 1 : 2;
    for (const std::string& name : names) {
        const bool isBeginning = word.size() > 2 && name.rfind(word, 0) == 0;
        const std::size_t distance = isBeginning ? 1 : Distance(word, name);
        if (distance <= fewest && distance < name.size() &&
            (closest.empty() || distance < fewest)) {
            closest = name;
            fewest = distance;
        }
    }
    return closest;
}

static std::vector<std::string> Commands(const CLI::App& app) {
    std::vector<std::string> names = {"--help", "--version"};
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
        names.insert(names.end(), command->get_aliases().begin(), command->get_aliases().end());
    }
    return names;
}

static std::vector<std::string> Options(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::string SuggestWord(const CLI::App& app, const CLI::App* command, const std::string& word) {
    if (command != nullptr) {
        for (const auto& synonym : optionSynonyms) {
            if (synonym.option == word && command->check_name(std::string(synonym.command))) {
                return std::string(synonym.hint);
            }
        }
        return word[0] == '-' ? Closest(word.substr(0, word.find('=')), Options(*command))
                              : std::string();
    }
    const std::vector<std::string> names = Commands(app);
    if (const std::string_view synonym = Synonym(word, names); !synonym.empty()) {
        return std::string(synonym);
    }
    // A file alone: the user wants to see what it contains.
    std::error_code ignored;
    const bool takesFiles = std::find(names.begin(), names.end(), "extract") != names.end();
    return takesFiles && std::filesystem::exists(word, ignored) ? "list " + word
                                                                : Closest(word, names);
}

}  // namespace vantry_tools
