#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

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
    std::vector<std::string> keys;
};

}  // namespace

// What is known of the cause; the file at least.
static std::string Cause() {
    const qtString& error = UnixRegistry::LastError();
    return error.empty() ? UnixRegistry::DatabasePath() : error;
}

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
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::putchar('\n');
}

static constexpr const char* notFound = "Key not found";

static void PrintValue(const std::string& key) {
    UnixRegistry store;
    OpenExisting(store);
    const char* data = nullptr;
    unsigned length = 0;
    if (!store.GetKey(key, data, length)) {
        throw ToolFailure(Failure(key, notFound, Cause()));
    }
    std::fwrite(data, 1, length, stdout);
}

static void Get(const GetOptions& options) {
    if (options.valueOnly) {
        PrintValue(UnquoteKey(options.key));
        return;
    }
    const std::string key = EditorKey(options.key, "--value");
    UnixRegistry store;
    OpenExisting(store);
    CvexRegEdit editor;
    if (!editor.Get(key.c_str())) {
        throw ToolFailure(Failure(key, editor.m_strMessage, Cause()));
    }
    PrintLine(editor.m_strMessage);
}

static void Set(const SetOptions& options) {
    const std::string key = EditorKey(options.key, "vexreg load");
    CvexRegEdit editor;
    if (!editor.Set(key.c_str(), options.value.c_str())) {
        throw ToolFailure(Failure(key, editor.m_strMessage, Cause()));
    }
    PrintLine(editor.m_strMessage);
}

static void SetPassword(const PasswordOptions& options) {
    const PasswordInput password;
    CvexRegEdit editor;
    if (!editor.SetPassword(password.Text(), options.kesh.c_str())) {
        const std::string section = options.kesh.empty() ? "" : "/Keshs/" + options.kesh + "/";
        throw ToolFailure(
            Failure("Logon" + section + "DatabaseParam", editor.m_strMessage, Cause()));
    }
    PrintLine(editor.m_strMessage);
}

static void Remove(const RemoveOptions& options) {
    UnixRegistry store;
    OpenExisting(store, true);
    UnixRegistry::Update update(store);
    bool allFound = true;
    for (const std::string& shown : options.keys) {
        const std::string key = UnquoteKey(shown);
        if (update.Remove(key)) {
            continue;
        }
        if (!UnixRegistry::LastError().empty()) {
            throw ToolFailure(Failure(key, "Cannot remove key", Cause()));
        }
        PrintError(Failure(key, notFound, Cause()));
        allFound = false;
    }
    if (!update.Commit()) {
        throw ToolFailure("Cannot remove keys (" + Cause() + ")");
    }
    if (!allFound) {
        throw ReportedFailure();
    }
}

void AddEditCommands(CLI::App& app) {
    const auto [getCommand, get] = AddCommand(app, "get", "Show a value",
                                              "Examples:\n"
                                              "  vexreg get Pop/Greeting\n"
                                              "  greeting=$(vexreg get --value Pop/Greeting)",
                                              &Get);
    AddPositional(getCommand, "KEY", get.key, "The full key, with its section");
    getCommand.add_flag("--value", get.valueOnly, "The value's bytes alone");

    const auto [setCommand, set] = AddCommand(app, "set", "Store a value",
                                              "An existing value is replaced.\n"
                                              "\n"
                                              "Examples:\n"
                                              "  vexreg set Pop/Greeting 'hello world'\n"
                                              "  vexreg set -- Pop/Offset -5",
                                              &Set);
    AddPositional(setCommand, "KEY", set.key, "The full key, with its section");
    AddPositional(setCommand, "VALUE", set.value, "The value, as it is");

    const auto [passwordCommand, password] = AddCommand(
        app, "password", "Store the password of the database logon, encrypted",
        "It asks for the password; where the standard input is no terminal it reads the\n"
        "first line. A kesh must have a user name before it can have a password.\n"
        "\n"
        "Examples:\n"
        "  vexreg password\n"
        "  vexreg set Logon/Keshs/main/DbUserName scott\n"
        "  vexreg password --kesh main < password.txt",
        &SetPassword);
    passwordCommand.add_option("--kesh", password.kesh, "The logon entry instead of the usual one")
        ->type_name("NAME");

    const auto [removeCommand, remove] =
        AddCommand(app, "rm", "Remove keys and their values",
                   "Keys that do not exist are named, the others removed.\n"
                   "\n"
                   "Example:\n"
                   "  vexreg rm Pop/Greeting Pop/Offset",
                   &Remove);
    removeCommand.alias("delete");
    AddPositional(removeCommand, "KEY", remove.keys, "The full keys");
}

}  // namespace vantry_tools
