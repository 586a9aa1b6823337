#include "tools/common/KeyText.h"
#include "tools/common/Tool.h"
#include "tools/vexreg/Commands.h"
#include "tools/vexreg/Records.h"
#include "tools/vexreg/Watchdog.h"

using namespace vantry_tools;

static std::vector<std::string> ShownKeys(const std::vector<std::string>& /*words*/) {
    StartWatchdog(2);  // the user waits at the command line
    UnixRegistry store;
    OpenExisting(store);
    std::vector<std::string> shown;
    for (const auto& [key, value] : ReadRecords(store)) {
        shown.push_back(QuoteKey(key));
    }
    return shown;
}

int main(int argc, char** argv) {
    CLI::App app("Shows and changes the registry: named values that programs share.", "vexreg");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(
        "The registry is the database named by BASEKIT_REGISTRY (without its .db), or\n"
        "$XDG_DATA_HOME/basekit/registry.db, or ~/.local/share/basekit/registry.db.\n"
        "Keys are any bytes. Those that are not printable are quoted, in output and input:\n"
        "  vexreg get '\"line\\nend\"'\n"
        "\n"
        "Examples:\n"
        "  vexreg set Pop/Greeting 'hello world'\n"
        "  vexreg get Pop/Greeting\n"
        "  vexreg list -l Pop/\n"
        "  vexreg import --help\n"
        "\n"
        "Exit status: 0 done, 1 the operation failed, 2 usage error.");
    AddWatchdog(app);
    AddEditCommands(app);
    AddListCommands(app);
    AddTransferCommands(app);
    AddWatchCommand(app);
    UnixRegistry::SetWaitReport([](const char* line) { PrintError(line); });
    return RunTool(app, argc, argv, &ShownKeys);
}
