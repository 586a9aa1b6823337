#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>

#include "tools/common/LongWork.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/PackageFile.h"

namespace vantry_tools {

namespace {

struct IdentityOptions : PackageOptions {
    std::optional<std::uint32_t> id;
    std::optional<std::uint32_t> word;
    std::optional<std::uint32_t> flags;
};

struct StateOptions : PackageOptions {
    std::optional<std::uint32_t> state;
};

}  // namespace

// Changes the header in place: its few bytes are written by one call, and so completely or not.
template <class Change>
static void ChangeHeader(const std::string& path, Change change) {
    RunLongWork(false, [&](CTProgress& progress) {
        const FileLock lock(path, WaitFor(progress));
        Hpack package;
        OnPackage(path, [&] {
            package.Open(lock.Path(), 'u');
            change(package);
            package.Close();
        });
    });
}

static void ShowOrSetIdentity(const IdentityOptions& options) {
    if (options.id) {
        if (!options.flags) {
            throw UsageFailure("ID, WORD and FLAGS go together");
        }
        ChangeHeader(options.package, [&](Hpack& package) {
            package.SetFileID(*options.id, static_cast<unsigned short>(*options.word),
                              static_cast<unsigned char>(*options.flags));
        });
        return;
    }
    unsigned int id = 0;
    unsigned short word = 0;
    unsigned char flags = 0;
    PackageReader(options.package).Package().GetFileID(id, word, flags);
    std::printf("%u %u %u\n", id, unsigned{word}, unsigned{flags});
}

static void ShowOrSetState(const StateOptions& options) {
    if (options.state) {
        ChangeHeader(options.package, [&](Hpack& package) {
            package.SetState(static_cast<unsigned char>(*options.state));
        });
        return;
    }
    unsigned char state = 0;
    PackageReader(options.package).Package().GetState(state);
    std::printf("%u\n", unsigned{state});
}

static void AddNumber(CLI::App& command, const char* name, std::optional<std::uint32_t>& value,
                      std::uint32_t largest) {
    command
        .add_option(
            name, value,
            "A number up to " + std::to_string(largest) + ", decimal or 0x with hexadecimal digits")
        ->check(CLI::Range(std::uint32_t{0}, largest))
        ->type_name("");
}

void AddIdentityCommands(CLI::App& app) {
    const auto [idCommand, identity] =
        AddPackageCommand(app, "id", "Show or set the identity of a package",
                          "The identity is three numbers: id, word and flags.\n"
                          "\n"
                          "Examples:\n"
                          "  hpk id letters.hpk\n"
                          "  hpk id letters.hpk 0x01020304 7 0",
                          &ShowOrSetIdentity);
    AddNumber(idCommand, "ID", identity.id, std::numeric_limits<std::uint32_t>::max());
    AddNumber(idCommand, "WORD", identity.word, std::numeric_limits<std::uint16_t>::max());
    AddNumber(idCommand, "FLAGS", identity.flags, std::numeric_limits<std::uint8_t>::max());

    const auto [stateCommand, state] =
        AddPackageCommand(app, "state", "Show or set the state of a package",
                          "Examples:\n"
                          "  hpk state letters.hpk\n"
                          "  hpk state letters.hpk 9",
                          &ShowOrSetState);
    AddNumber(stateCommand, "N", state.state, std::numeric_limits<std::uint8_t>::max());
}

}  // namespace vantry_tools
