#include "tools/common/Suggestion.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <string_view>
#include <vector>

namespace vantry_tools {

// Words of archivers, shells and databases, and what has their meaning here.
static constexpr struct {
    std::string_view word;
    std::string_view command;
} synonyms[] = {
    {"add", "set"},        {"append", "add"},      {"backup", "dump"},
    {"cat", "get"},        {"commands", "--help"}, {"copy", "get"},
    {"cp", "get"},         {"create", "set"},      {"del", "rm"},
    {"dir", "list"},       {"find", "list"},       {"fsck", "check"},
    {"gc", "compact"},     {"insert", "put"},      {"keys", "list"},
    {"move", "mv"},        {"new", "create"},      {"open", "list"},
    {"pack", "create"},    {"print", "get"},       {"put", "set"},
    {"read", "get"},       {"remove", "rm"},       {"repair", "recover"},
    {"replace", "put"},    {"restore", "load"},    {"salvage", "recover"},
    {"select", "list"},    {"show", "get"},        {"shrink", "compact"},
    {"stat", "info"},      {"store", "put"},       {"store", "set"},
    {"tables", "list"},    {"test", "check"},      {"type", "get"},
    {"unlink", "rm"},      {"unpack", "extract"},  {"unset", "rm"},
    {"unzip", "extract"},  {"update", "add"},      {"V", "--version"},
    {"vacuum", "compact"}, {"verify", "check"},    {"version", "--version"},
    {"write", "put"},      {"write", "set"},       {"zip", "create"},
};

// Which of `names` does what tar does for "xvf", with or without a dash, and sqlite3 for ".tables".
static std::string_view Synonym(std::string_view word, const std::vector<std::string>& names) {
    const auto known = [&names](std::string_view name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    const std::size_t start = word.find_first_not_of("-.");
    word.remove_prefix(std::min(start, word.size()));
    for (const auto& synonym : synonyms) {
        if (synonym.word == word && known(synonym.command)) {
            return synonym.command;
        }
    }
    if (!word.empty() && known("extract") &&
        word.find_first_not_of("ctxruvfz") == std::string_view::npos) {
        const char mode = word.front();
        return mode == 'c' ? "create" : mode == 't' ? "list" : mode == 'x' ? "extract" : "add";
    }
    return {};
}

// How many letters have to be changed, added, left out or exchanged with the next.
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
        return word[0] == '-' ? Closest(word.substr(0, word.find('=')), Options(*command))
                              : std::string();
    }
    const std::vector<std::string> names = Commands(app);
    if (const std::string_view synonym = Synonym(word, names); !synonym.empty()) {
        return std::string(synonym);
    }
    // Whoever gives nothing but a file wants to see what is in it.
    std::error_code ignored;
    const bool takesFiles = std::find(names.begin(), names.end(), "extract") != names.end();
    return takesFiles && std::filesystem::exists(word, ignored) ? "list " + word
                                                                : Closest(word, names);
}

}  // namespace vantry_tools
