// What any bytes store when imported is the same once exported and imported, but for passwords.
#include <unistd.h>

#include <filesystem>

#include "VexUnix/VexRegistryUnix.h"
#include "fuzz/Fuzz.h"

static Contents Stored() {
    Contents records;
    UnixRegistry store;
    REQUIRE(store.Open(false));
    REQUIRE(store.ForEach([&](const qtString& key, const char* data, unsigned length) {
        const qtString password("DatabaseParam");
        if (key.size() < password.size() ||
            key.compare(key.size() - password.size(), password.size(), password) != 0) {
            REQUIRE(records.emplace(key, qtString(data, length)).second);
        }
    }));
    return records;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace fs = std::filesystem;
    static const fs::path folder =
        fs::temp_directory_path() / ("registry-fuzz-" + std::to_string(getpid()));
    fs::remove_all(folder);
    fs::create_directories(folder);
    setenv("BASEKIT_REGISTRY", (folder / "one").c_str(), 1);
    WriteFile((folder / "text").string(), Input(data, size).rest);
    CvexRegEdit editor;
    editor.Import((folder / "text").c_str());
    const Contents stored = Stored();
    REQUIRE(editor.Export((folder / "again").c_str()));
    setenv("BASEKIT_REGISTRY", (folder / "two").c_str(), 1);
    CvexRegEdit other;
    REQUIRE(other.Import((folder / "again").c_str()) || stored.empty());
    REQUIRE(Stored() == stored);
    fs::remove_all(folder);
    return 0;
}
