#include "tools/common/Tool.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>

#include "Vantry/VantryVersion.h"
#include "basekit/qtxAll.h"
#include "tools/common/KeyText.h"

void PrintError(std::string_view text) {
    const std::string line =
        std::string(program_invocation_short_name) + ": " + PrintableText(text) + '\n';
    std::fflush(stdout);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

ToolFailure SystemFailure(std::string_view what, std::string_view path, int error) {
    std::string text(what);
    text.append(" ").append(path).append(": ").append(std::strerror(error));
    return ToolFailure(text);
}

std::string DescribeException() {
    try {
        throw;
    } catch (const qtxAll& error) {
        const char* const text = error.SpecificString();
        return *text != 0 ? std::string(text) : std::string(error.ErrorString());
    } catch (const std::bad_alloc&) {
        return "out of memory";
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown error";
    }
}

static void FlushOutput() {
    errno = 0;
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    if (!flushed || std::ferror(stdout) != 0 || !std::cout) {
        throw SystemFailure("cannot write", "standard output", errno != 0 ? errno : EIO);
    }
}

static int ParseFailed(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {  // --help and --version come this way
        app.exit(error);
        FlushOutput();
        return exitDone;
    }
    std::string helpOf = app.get_name();
    for (const CLI::App* command : app.get_subcommands()) {
        helpOf += " " + command->get_name();
    }
    PrintError(std::string(error.what()) + " (see " + helpOf + " --help)");
    return exitUsage;
}

static int EndBySignal(int signal) {
    PrintError("interrupted");
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return exitFailed;
}

static int Run(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        FlushOutput();
        return exitDone;
    } catch (const CLI::ParseError& error) {
        return ParseFailed(app, error);
    }
}

int RunTool(CLI::App& app, int argc, char** argv) {
    // A file that meets a size limit is to fail like any other write.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        char version[11];
        GetVantryVersion(version);
        app.set_version_flag("--version", version, "Show the library's version");
        return Run(app, argc, argv);
    } catch (const ReportedFailure&) {
        std::fflush(stdout);
        return exitFailed;
    } catch (const Interrupted& stop) {
        return EndBySignal(stop.signal);
    } catch (const UsageFailure& error) {
        PrintError(error.what());
        return exitUsage;
    } catch (...) {
        PrintError(DescribeException());
        return exitFailed;
    }
}
