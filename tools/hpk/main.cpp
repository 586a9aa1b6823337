#include "tools/common/KeyText.h"
#include "tools/common/Tool.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/PackageFile.h"

using namespace vantry_tools;

static std::vector<std::string> ShownKeys(const std::vector<std::string>& words) {
    std::vector<std::string> shown;
    for (const qtString& key : PackageReader(words.at(0)).Keys()) {
        shown.push_back(QuoteKey(key));
    }
    return shown;
}

int main(int argc, char** argv) {
    CLI::App app("Works with packages: files of named items.", "hpk");
    app.require_subcommand(1);
    app.footer(
        "Keys are any bytes. Keys that are not printable are shown, and entered, in quotes:\n"
        "  hpk get a.hpk '\"line\\nend\"'\n"
        "\n"
        "Examples:\n"
        "  hpk create a.hpk /usr/include\n"
        "  hpk list -l a.hpk 'linux/*'\n"
        "  hpk get a.hpk linux/types.h\n"
        "  hpk create --help\n"
        "\n"
        "Exit status: 0 success, 1 failure, 2 usage error.");
    AddPackCommands(app);
    AddListCommands(app);
    AddInfoCommands(app);
    AddGetCommands(app);
    AddChangeCommands(app);
    AddCompareCommands(app);
    AddImportCommands(app);
    AddExportCommands(app);
    AddSumCommands(app);
    AddSignCommands(app);
    AddSyncCommands(app);
    AddMapCommands(app);
    AddIdentityCommands(app);
    AddRepairCommands(app);
    return RunTool(app, argc, argv, &ShownKeys);
}
