#include "basekit/files.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/Bytes.h"
#include "tests/support/TempFolder.h"

namespace {

TEST(files, ReadsAllOrNothing) {
    const TempFolder folder;
    const qtString path = folder / "file";
    for (const std::size_t size : {0, 1, 65536, 200000}) {
        const std::string bytes(size, '\xff');
        WriteFile(path, bytes);
        qtString content = "former";
        EXPECT_EQ(qtStringRead(content, path), 0);
        EXPECT_TRUE(content == bytes) << size;
    }
    struct {
        qtString path;
        int result;
        int kind;
    } const cases[] = {{folder / "none", -ENOENT, 0},
                       {folder / "", -EISDIR, 2},
                       {path + "/x", -ENOTDIR, 0},
                       {"/dev/null", 0, 1}};
    for (const auto& row : cases) {
        qtString content = "former";
        EXPECT_EQ(qtStringRead(content, row.path), row.result) << row.path;
        EXPECT_EQ(content, row.result == 0 ? "" : "former");
        EXPECT_EQ(IsFileOrDirectory(row.path), row.kind) << row.path;
    }
    std::filesystem::create_directory_symlink(folder.Path(), path + "link");
    EXPECT_EQ(IsFileOrDirectory(path + "link"), 2);
}

}  // namespace
