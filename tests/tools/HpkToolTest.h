#pragma once

#include "tests/support/Items.h"
#include "tests/support/ToolTest.h"

/// Tests of hpk on folders of files and on packages.
class HpkToolTest : public ToolTest {
protected:
    using Files = Contents;

    static Files Tree(const std::filesystem::path& root) {
        Files files;
        for (const std::filesystem::directory_entry& entry :
             std::filesystem::recursive_directory_iterator(root)) {
            if (entry.is_regular_file() && !entry.is_symlink()) {
                files[entry.path().lexically_relative(root).string()] = FileBytes(entry.path());
            }
        }
        return files;
    }

    static void WriteTree(const Files& files, const std::filesystem::path& root) {
        for (const auto& [name, bytes] : files) {
            const std::filesystem::path file = root / name.c_str();
            std::filesystem::create_directories(file.parent_path());
            WriteFile(file, bytes);
        }
    }

    static void MakePackage(const Contents& items) { WriteFile("p", Package(items)); }
};
