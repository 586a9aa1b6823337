#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "VexUnix/VexRegistryUnix.h"
#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"
#include "tools/vexreg/Commands.h"
#include "tools/vexreg/PasswordInput.h"
#include "tools/vexreg/Records.h"

namespace vantry_tools {

namespace {

struct GetOptions {
    std::string key;
    bool valueOnly = false;
};

struct SetOptions {
    std::string key;
    std::string value;
};

struct PasswordOptions {
    std::string kesh;
};

struct RemoveOptions {
    RecordChoice choice;
};

}  // namespace

static std::string Failure(std::string_view key, const std::string& message,
                           const std::string& cause) {
    return QuoteKey(key) + ": " + message + " (" + cause + ")";
}

// The editor takes keys that end at their first NUL.
static std::string EditorKey(const std::string& shown, const char* instead) {
    std::string key = UnquoteKey(shown);
    if (key.find('\0') != std::string::npos) {
        throw UsageFailure(shown + ": a key with NUL in it needs " + instead);
    }
    return key;
}

static void PrintLine(const std::string& text) {
    PrintSafely(text);
    std::putchar('\n');
}

static constexpr const char* notFound = "Key not found";

// A terminal gets a line, everything else the bytes alone.
static void PrintValue(const std::string& key, std::string_view value) {
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    if (isTerminal && CvexRegEdit::IsPasswordKey(key)) {
        value = "(password)";
    }
    PrintSafely(value);
    if (isTerminal && (value.empty() || value.back() != '\n')) {
        std::putchar('\n');
    }
}

static void GetValue(const std::string& key) {
    UnixRegistry store;
    OpenExisting(store);
    const char* data = nullptr;
    unsigned length = 0;
    if (!store.GetKey(key, data, length)) {
        throw ToolFailure(Failure(key, notFound, FailureCause()));
    }
    PrintValue(key, length == 0 ? std::string_view() : std::string_view(data, length));
}

static void Get(const GetOptions& options) {
    if (options.valueOnly) {
        GetValue(UnquoteKey(options.key));
        return;
    }
    const std::string key = EditorKey(options.key, "--value");
    UnixRegistry store;
    OpenExisting(store);
    CvexRegEdit editor;
    if (!editor.Get(key.c_str())) {
        throw ToolFailure(Failure(key, editor.m_strMessage, FailureCause()));
    }
    PrintLine(CvexRegEdit::IsPasswordKey(key) ? "key: " + key + "   Value: (password)"
                                              : std::string(editor.m_strMessage));
}

static void Set(const SetOptions& options) {
    const std::string key = EditorKey(options.key, "vexreg load");
    CvexRegEdit editor;
    if (!editor.Set(key.c_str(), options.value.c_str())) {
        throw ToolFailure(Failure(key, editor.m_strMessage, FailureCause()));
    }
    PrintLine(editor.m_strMessage);
}

static void SetPassword(const PasswordOptions& options) {
    const PasswordInput password;
    CvexRegEdit editor;
    if (!editor.SetPassword(password.Text(), options.kesh.c_str())) {
        throw ToolFailure(Failure(CvexRegEdit::PasswordKey(options.kesh.c_str()),
                                  editor.m_strMessage, FailureCause()));
    }
    PrintLine(editor.m_strMessage);
}

static void Remove(const RemoveOptions& options) {
    if (options.choice.Empty()) {
        throw UsageFailure("KEY is required");
    }
    UnixRegistry store;
    OpenExisting(store, true);
    const Records records = ReadRecords(store);
    UnixRegistry::Update update(store);
    for (const auto& [key, value] : options.choice.Choose(records)) {
        // Another program may have removed it meanwhile.
        if (!update.Remove(key) && !UnixRegistry::LastError().empty()) {
            throw ToolFailure(Failure(key, "Cannot remove key", FailureCause()));
        }
    }
    if (!update.Commit()) {
        throw ToolFailure("Cannot remove keys (" + FailureCause() + ")");
    }
    if (!options.choice.AllSelect(records, notFound)) {
        throw ReportedFailure();
    }
}

void AddEditCommands(CLI::App& app) {
    const auto [getCommand, get] = AddCommand(app, "get", "Show a value",
                                              "Examples:\n"
                                              "  vexreg get Pop/Greeting\n"
                                              "  greeting=$(vexreg get -v Pop/Greeting)",
                                              &Get);
    AddPositional(getCommand, "KEY", get.key, "The full key, with its section");
    getCommand.add_flag("-v,--value", get.valueOnly, "The value's bytes alone");

    const auto [setCommand, set] = AddCommand(app, "set", "Store a value",
                                              "An existing value is replaced.\n"
                                              "\n"
                                              "Examples:\n"
                                              "  vexreg set Pop/Greeting 'hello world'\n"
                                              "  vexreg set -- Pop/Offset -5",
                                              &Set);
    AddPositional(setCommand, "KEY", set.key, "The full key, with its section");
    AddPositional(setCommand, "VALUE", set.value, "The value, taken literally");

    const auto [passwordCommand, password] =
        AddCommand(app, "password", "Store the password of the database logon, encrypted",
                   "The command asks for the password. If standard input is not a terminal, it\n"
                   "reads the first line. A kesh needs a user name before it can have a password.\n"
                   "\n"
                   "Examples:\n"
                   "  vexreg password\n"
                   "  vexreg set Logon/Keshs/main/DbUserName scott\n"
                   "  vexreg password --kesh main < password.txt",
                   &SetPassword);
    passwordCommand.add_option("--kesh", password.kesh, "The kesh whose password to set")
        ->type_name("NAME");

    const auto [removeCommand, remove] =
        AddCommand(app, "rm", "Remove keys and their values",
                   "A KEY that ends in a slash stands for all keys that begin with it. A KEY with\n"
                   "*, ? or [ is a pattern, unless it is a key. Words that select nothing are\n"
                   "reported, and the other keys removed.\n"
                   "\n"
                   "Examples:\n"
                   "  vexreg rm Pop/Greeting Pop/Offset\n"
                   "  vexreg rm 'Trace/*' Pop/Old/",
                   &Remove);
    removeCommand.alias("delete");
    remove.choice.AddTo(removeCommand, "The keys to remove");
}

}  // namespace vantry_tools
