#include <cstdio>
#include <string>

#include "basekit/RegistryWatch.h"
#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"
#include "tools/vexreg/Commands.h"
#include "tools/vexreg/Records.h"
#include "tools/vexreg/Watchdog.h"

namespace vantry_tools {

namespace {

struct WatchOptions {
    std::string prefix;
};

}  // namespace

static void PrintChange(const qtString& key, const qtString* value) {
    PrintSafely(value == nullptr ? "remove\t" + QuoteKey(key) + '\n'
                                 : "set\t" + QuoteKey(key) + '\t' + ShowValue(key, *value) + '\n');
}

static void Watch(const WatchOptions& options) {
    RegistryWatch watch;
    if (!watch.Open(UnquoteKey(options.prefix))) {
        throw ToolFailure(FailureCause());
    }
    for (;;) {
        if (!watch.Wait(-1, &PrintChange) && !UnixRegistry::LastError().empty()) {
            throw ToolFailure(FailureCause());
        }
        if (std::fflush(stdout) != 0) {
            throw ToolFailure("cannot write standard output");
        }
        RestartWatchdog();
    }
}

void AddWatchCommand(CLI::App& app) {
    const auto [command, options] =
        AddCommand(app, "watch", "Show changes as they happen, until Ctrl-C",
                   "Each line has \"set\", a key and its new value, or \"remove\" and a key, with\n"
                   "tabs between them. Of several changes in quick succession, only the last may\n"
                   "be shown.\n"
                   "\n"
                   "Example:\n"
                   "  vexreg watch Pop/ | while read -r change key value; do ...; done",
                   &Watch);
    command.add_option("PREFIX", options.prefix, "Only keys that begin with it")->type_name("");
}

}  // namespace vantry_tools
