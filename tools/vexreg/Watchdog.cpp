#include "tools/vexreg/Watchdog.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>

#include "basekit/UnixRegistry.h"
#include "tools/common/Failures.h"
#include "tools/common/PrintableText.h"

namespace vantry_tools {

// Composed in advance: a signal handler must not allocate.
static std::string s_timeMessage;
static std::string s_faultMessage;
static unsigned s_seconds = 0;

static void EndTool(int signal) {
    const std::string& message = signal == SIGXCPU ? s_timeMessage : s_faultMessage;
    if (write(STDERR_FILENO, message.data(), message.size()) < 0) {
        // There is no other place to report it.
    }
    _exit(exitFailed);
}

void StartWatchdog(unsigned seconds) {
    const std::string start = "vexreg: " + PrintableText(UnixRegistry::DatabasePath()) + ": ";
    s_timeMessage = start + "no answer within " + std::to_string(seconds) +
                    " s of processor time: the database is damaged\n";
    s_faultMessage = start + "reading it ended in a fault: the database is damaged\n";

    // An endless recursion leaves no room on the usual stack.
    static char room[65536];
    stack_t stack{};
    stack.ss_sp = room;
    stack.ss_size = sizeof room;
    sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_handler = EndTool;
    action.sa_flags = SA_ONSTACK;
    for (const int signal : {SIGXCPU, SIGSEGV, SIGBUS, SIGFPE, SIGABRT}) {
        sigaction(signal, &action, nullptr);
    }
    s_seconds = seconds;
    RestartWatchdog();
}

void RestartWatchdog() {
    rusage used{};
    rlimit limit{};
    if (s_seconds != 0 && getrusage(RUSAGE_SELF, &used) == 0 &&
        getrlimit(RLIMIT_CPU, &limit) == 0) {
        limit.rlim_cur =
            static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + s_seconds;
        setrlimit(RLIMIT_CPU, &limit);
    }
}

void AddWatchdog(CLI::App& app) {
    const auto seconds = std::make_shared<unsigned>(30);
    app.add_option("--time-limit", *seconds,
                   "Seconds of processor time until damage is assumed; 0: any")
        ->capture_default_str()
        ->type_name("");
    app.parse_complete_callback([seconds] { StartWatchdog(*seconds); });
}

}  // namespace vantry_tools
