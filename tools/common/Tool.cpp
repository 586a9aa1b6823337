#include "tools/common/Tool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

#include "Vantry/VantryVersion.h"
#include "tools/common/Suggestion.h"

namespace vantry_tools {

static void FlushOutput() {
    errno = 0;
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    if (!flushed || std::ferror(stdout) != 0 || !std::cout) {
        throw SystemFailure("cannot write", "standard output", errno != 0 ? errno : EIO);
    }
}

// The parser hands "--" in a command to the level above, where the words behind it mean nothing,
// and it takes words in brackets apart. So it never sees such words as they are: they come with a
// mark, which no argument can have, and each option takes that off again.
static constexpr char wordMark = '\0';

static std::string Unmarked(const std::string& word) {
    return word.substr(word.rfind(wordMark, 0) == 0 ? 1 : 0);
}

// "help", "help COMMAND" and "COMMAND -h", where -h may have another meaning with more words.
static void TakeHelpWords(std::vector<std::string>& words) {
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    } else if (words.size() == 2 && words.back() == "-h") {
        words.back() = "--help";
    }
}

static std::vector<std::string> Words(int argc, char** argv) {
    std::vector<std::string> words;
    bool optionsEnded = false;
    for (int at = 1; at < argc; ++at) {
        const std::string word = argv[at];
        if (!optionsEnded && word == "--") {
            optionsEnded = true;
            continue;
        }
        const bool marked = optionsEnded || word == "++" || word[0] == '[' || word[0] == '{';
        words.push_back(marked ? wordMark + word : word);
    }
    TakeHelpWords(words);
    return words;
}

static void TakeMarksOff(CLI::App& app) {
    const CLI::Validator unmark(
        [](std::string& word) {
            word = Unmarked(word);
            return std::string();
        },
        "");
    for (CLI::App* const command : app.get_subcommands({})) {
        for (CLI::Option* const option : command->get_options()) {
            option->transform(unmark);
        }
    }
}

static const CLI::App* GivenCommand(const CLI::App& app) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    return given.empty() ? nullptr : given.front();
}

static int UsageFailed(const CLI::App& app, const CLI::App* command, const std::string& reason) {
    const std::string name = command == nullptr ? "" : " " + command->get_name();
    PrintError(reason + " (see " + app.get_name() + name + " --help)");
    return exitUsage;
}

// The command that was given before a word: with a later one the word has nothing to do.
static const CLI::App* CommandBefore(const std::string& word, const CLI::App& app,
                                     const std::vector<std::string>& words) {
    const CLI::App* const command = GivenCommand(app);
    const auto end = std::find(words.begin(), words.end(), word);
    const bool isBefore = std::any_of(words.begin(), end, [command](const std::string& before) {
        return command != nullptr && command->check_name(before);
    });
    return isBefore ? command : nullptr;
}

static int ParseFailed(const CLI::App& app, const std::vector<std::string>& words,
                       const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // --help and --version come this way
        app.exit(error);
        FlushOutput();
        return exitDone;
    }
    std::string reason = error.what();
    const CLI::App* command = GivenCommand(app);
    if (const std::vector<std::string> unknown = app.remaining(true); !unknown.empty()) {
        command = CommandBefore(unknown.front(), app, words);
        const std::string word = Unmarked(unknown.front());
        reason = "unknown word or option " + word;
        if (const std::string meant = SuggestWord(app, command, word); !meant.empty()) {
            reason += "; did you mean " + meant + "?";
        }
    }
    return UsageFailed(app, command, reason);
}

static int EndBySignal(int signal) {
    PrintError("interrupted");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return exitFailed;
}

static int Run(CLI::App& app, int argc, char** argv) {
    const std::vector<std::string> words = Words(argc, argv);
    try {
        TakeMarksOff(app);
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
        FlushOutput();
        return exitDone;
    } catch (const CLI::ParseError& error) {
        return ParseFailed(app, words, error);
    }
}

int RunTool(CLI::App& app, int argc, char** argv, const KeyLister& keys) {
    // A file that meets a size limit is to fail like any other write.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        char version[11];
        GetVantryVersion(version);
        app.set_version_flag("--version", version, "Show the library's version");
        if (argc > 1 && std::strcmp(argv[1], "__complete") == 0) {
            PrintCompletions(app, {argv + 2, argv + argc}, keys);
            FlushOutput();
            return exitDone;
        }
        return Run(app, argc, argv);
    } catch (const ReportedFailure& failure) {
        std::fflush(stdout);
        return failure.status;
    } catch (const Interrupted& stop) {
        return EndBySignal(stop.signal);
    } catch (const UsageFailure& error) {
        return UsageFailed(app, GivenCommand(app), error.what());
    } catch (...) {
        PrintError(DescribeException());
        return exitFailed;
    }
}

}  // namespace vantry_tools
