#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "hpack/Hpack.h"

// Brings what was written to the disk. A failure is final: what a second try says is not to be
// believed.
static void Sync(const std::filesystem::path& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool synced = descriptor >= 0 && fsync(descriptor) == 0;
    const std::error_code error(errno, std::generic_category());
    close(descriptor);
    if (!synced) {
        throw std::system_error(error, "cannot sync " + path.string());
    }
}

// After a power cut the package is as it was or as it is to be, whenever that was.
template <class Change>
static void UpdateDurably(const std::filesystem::path& package, Change change) {
    const std::filesystem::path folder = std::filesystem::absolute(package).parent_path();
    const std::filesystem::path beside = package.string() + ".new";
    copy_file(package, beside, std::filesystem::copy_options::overwrite_existing);
    Hpack copy;
    copy.Open(beside.string(), 'u');
    change(copy);
    copy.Close();             // says whether all was written: a destructor would not
    Sync(beside);             // first what the new name leads to,
    rename(beside, package);  // then the name,
    Sync(folder);             // then the folder that holds the name
}

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: durable_update PACKAGE KEY BODY\n";
        return 2;
    }
    try {
        UpdateDurably(argv[1], [&](Hpack& package) { package.AddOrUpdate(argv[2], argv[3]); });
    } catch (const qtxAll& error) {
        std::cerr << error.ErrorString() << "\n";
        return 1;
    } catch (const std::system_error& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
