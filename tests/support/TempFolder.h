#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "basekit/qtString.h"

/// A new folder for one test's files, removed with all that is in it.
class TempFolder {
public:
    TempFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vantry-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder: " + name);
        }
        path = name;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return path; }
    qtString operator/(const char* name) const { return (path / name).string(); }

private:
    std::filesystem::path path;
};
