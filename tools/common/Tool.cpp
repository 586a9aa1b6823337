#include "tools/common/Tool.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <sstream>
#include <utility>
#include <vector>

#include "Vantry/VantryVersion.h"
#include "tools/common/Suggestion.h"
#include "tools/common/System.h"

namespace vantry_tools {

static void FlushOutput() {
    errno = 0;
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    if (!flushed || std::ferror(stdout) != 0 || !std::cout) {
        throw SystemError(errno != 0 ? errno : EIO, "cannot write", "standard output");
    }
}

// The parser hands "--" in a command to the level above, where the words after it mean nothing,
// and it splits words in brackets. So such words get a mark, which no argument can contain, and
// each option removes it again.
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

// The command that was given before a word; a later one does not concern the word.
static const CLI::App* CommandBefore(const std::string& word, const CLI::App& app,
                                     const std::vector<std::string>& words) {
    const CLI::App* const command = GivenCommand(app);
    const auto end = std::find(words.begin(), words.end(), word);
    const bool isBefore = std::any_of(words.begin(), end, [command](const std::string& before) {
        return command != nullptr && command->check_name(before);
    });
    return isBefore ? command : nullptr;
}

static constexpr std::size_t helpWidth = 79;

// Breaks a line at blanks; the further lines start with `indent` blanks.
static std::string Broken(std::string line, std::size_t indent) {
    std::string lines;
    while (line.size() > helpWidth) {
        const std::size_t cut = line.rfind(' ', helpWidth);
        if (cut == std::string::npos || cut <= indent) {
            break;
        }
        lines.append(line, 0, cut).append("\n");
        line.replace(0, cut + 1, indent, ' ');
    }
    return lines + line + '\n';
}

// Fits the help to a terminal, which the parser does not. Paragraphs are filled; descriptions of
// options and commands are broken; examples stay as they are.
static std::string Wrapped(const std::string& help) {
    constexpr std::size_t column = 30;  // where descriptions start
    std::istringstream lines(help);
    std::string wrapped;
    std::string paragraph;
    const auto endParagraph = [&] {
        wrapped += paragraph.empty() ? "" : Broken(std::exchange(paragraph, {}), 0);
    };
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 6, "Usage:") == 0) {
            endParagraph();
        }
        if (!line.empty() && line[0] != ' ') {
            paragraph += (paragraph.empty() ? "" : " ") + line;
            continue;
        }
        endParagraph();
        const bool described = line.size() > column && line[column - 1] == ' ';
        wrapped += described ? Broken(line, column) : line + '\n';
    }
    endParagraph();
    return wrapped;
}

static int ParseFailed(const CLI::App& app, const std::vector<std::string>& words,
                       const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // --help or --version
        const bool help = dynamic_cast<const CLI::CallForVersion*>(&error) == nullptr;
        std::cout << (help ? Wrapped(app.help()) : error.what() + std::string("\n"));
        FlushOutput();
        return exitDone;
    }
    if (words.empty()) {
        std::cerr << Wrapped(app.help());
        return exitUsage;
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

// Lack of memory where nothing may be thrown.
[[noreturn]] static void EndWithoutMemory() {
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::bad_alloc&) {
        constexpr std::string_view line = ": out of memory\n";
        iovec parts[] = {
            {program_invocation_short_name, std::strlen(program_invocation_short_name)},
            {const_cast<char*>(line.data()), line.size()}};
        [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, parts, 2);
        _exit(exitFailed);
    } catch (...) {
        std::abort();
    }
}

int RunTool(CLI::App& app, int argc, char** argv, const KeyLister& keys) {
    // A write beyond a size limit should fail like any other.
    std::signal(SIGXFSZ, SIG_IGN);
    std::set_terminate(&EndWithoutMemory);
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
