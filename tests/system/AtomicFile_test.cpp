#include "system/AtomicFile.h"

#include <endian.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdarg>
#include <set>

#include "tests/support/Bytes.h"
#include "tests/support/Processes.h"
#include "tests/support/TempFolder.h"

namespace {

// What the two calls below are to do, and what they have done.
struct Calls {
    bool withoutTmpfile = false;  // as on a file system that cannot create files without a name
    int failFile = 0;             // errors of fsync
    int failFolder = 0;
    std::string syncs;  // "f" for a file, "d" for a folder
};
Calls calls;

int Sync(int descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    calls.syncs += S_ISDIR(status.st_mode) ? 'd' : 'f';
    const int error = S_ISDIR(status.st_mode) ? calls.failFolder : calls.failFile;
    errno = error;
    return error != 0 ? -1 : static_cast<int>(syscall(SYS_fsync, descriptor));
}

int OpenAt(int folder, const char* name, int flags, unsigned mode) {
    if (calls.withoutTmpfile && (flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, folder, name, flags, mode));
}

}  // namespace

// The C library's functions, replaced for the code under test.
extern "C" int fsync(int descriptor) {
    return Sync(descriptor);
}
extern "C" int openat(int folder, const char* name, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const unsigned mode = va_arg(list, unsigned);
    va_end(list);
    return OpenAt(folder, name, flags, mode);
}

namespace {

namespace fs = std::filesystem;
using vantry_internal::AtomicFile;
using vantry_internal::FileLock;
using vantry_internal::SystemError;
using vantry_internal::WriteAll;
using Existing = AtomicFile::Existing;

constexpr const char* accessList = "system.posix_acl_access";

// Each test runs with files that have no name at first and with files that have one.
class AtomicFileTest : public ::testing::TestWithParam<bool> {
protected:
    AtomicFileTest() {
        calls = Calls();
        calls.withoutTmpfile = GetParam();
        umask(027);
    }
    ~AtomicFileTest() override { calls = Calls(); }

    static void Write(AtomicFile& file, const std::string& content) {
        WriteAll(file.Descriptor(), content.data(), content.size(), "test");
    }
    static std::string Failure(const std::function<void()>& work) {
        try {
            work();
            return "";
        } catch (const SystemError& error) {
            return error.what();
        }
    }
    std::string Names() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.insert(entry.path().filename());
        }
        std::string all;
        for (const std::string& name : names) {
            all += name + ' ';
        }
        return all;
    }
    static mode_t Mode(const fs::path& path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0);
        return status.st_mode & 07777;
    }

    TempFolder scratch;
    const fs::path folder = scratch.Path();
    const std::string target = folder / "a";
};

TEST_P(AtomicFileTest, AppearsCompleteOrNotAtAll) {
    for (const std::string former : {"", "former"}) {
        calls.syncs.clear();
        {
            AtomicFile dropped(target, Existing::replace);
            Write(dropped, "dropped");
            EXPECT_EQ(fs::status(dropped.Path()).permissions(), fs::perms(0600));
        }
        EXPECT_EQ(Names(), former.empty() ? "" : "a ");
        AtomicFile file(target, Existing::replace);
        Write(file, "new");
        EXPECT_EQ(FileBytes(file.Path()), "new");
        EXPECT_EQ(former.empty() ? Names().find("a ") : 0, former.empty() ? std::string::npos : 0);
        EXPECT_EQ(calls.syncs, "");
        file.Commit();
        EXPECT_EQ(calls.syncs, "fd") << "the bytes before the name, the name before the end";
        EXPECT_EQ(FileBytes(target), "new");
        EXPECT_EQ(Names(), "a ");
    }
    EXPECT_EQ(Failure([&] { AtomicFile(target, Existing::refuse); }),
              "cannot create " + target + ": File exists");
    EXPECT_EQ(Failure([&] { AtomicFile(folder, Existing::replace); }),
              "cannot replace " + folder.string() + ": Is a directory");
    EXPECT_EQ(Failure([&] { AtomicFile("/dev/null", Existing::replace); }),
              "cannot replace /dev/null: not a regular file");

    const std::string late = folder / "b";
    AtomicFile second(late, Existing::refuse);
    AtomicFile first(late, Existing::refuse);
    Write(first, "first");
    first.Commit(AtomicFile::Sync::no);
    EXPECT_EQ(calls.syncs, "fd");
    EXPECT_EQ(Failure([&] { second.Commit(); }), "cannot create " + late + ": File exists");
    EXPECT_EQ(FileBytes(late), "first");
}

TEST_P(AtomicFileTest, FailedSyncsAreReported) {
    WriteFile(target, "former");
    calls.failFile = EIO;
    {
        AtomicFile file(target, Existing::replace);
        EXPECT_EQ(Failure([&] { file.Commit(); }),
                  "cannot write " + target + ": Input/output error");
    }
    EXPECT_EQ(FileBytes(target), "former");
    EXPECT_EQ(Names(), "a ");
    calls = Calls();
    calls.withoutTmpfile = GetParam();
    for (const int error : {EIO, EINVAL}) {
        calls.failFolder = error;
        AtomicFile file(target, Existing::replace);
        Write(file, "new");
        EXPECT_EQ(Failure([&] { file.Commit(); }),
                  error == EINVAL ? "" : "cannot sync " + folder.string() + ": Input/output error");
        EXPECT_EQ(FileBytes(target), "new");
    }
}

TEST_P(AtomicFileTest, FollowsLinksThatCanBeTrusted) {
    fs::create_directory(folder / "real");
    fs::create_symlink("real/file", folder / "other");
    fs::create_symlink("other", target);
    for (int round = 0; round < 2; ++round) {  // a dangling link, then one to a file
        AtomicFile(target, Existing::replace).Commit();
        EXPECT_TRUE(fs::is_symlink(target) && fs::is_regular_file(folder / "real/file"));
    }
    fs::create_symlink("circle", folder / "circle");
    EXPECT_EQ(Failure([&] { AtomicFile(folder / "circle", Existing::replace); }),
              "cannot follow the link " + (folder / "circle").string() +
                  ": Too many levels of symbolic links");
    if (geteuid() == 0) {
        ASSERT_EQ(lchown(target.c_str(), 65534, 65534), 0);
        AtomicFile(target, Existing::replace).Commit();
        ASSERT_EQ(chmod(folder.c_str(), 01777), 0);
        EXPECT_EQ(Failure([&] { AtomicFile(target, Existing::replace); }),
                  "cannot follow the link " + target + ": Permission denied");
    }
}

TEST_P(AtomicFileTest, GrantsWhatTheFormerFileGrantedAndNoMore) {
    for (const mode_t mode : {0666u, 0600u, 0777u}) {
        const std::string path = folder / std::to_string(mode);
        AtomicFile(path, Existing::replace, mode).Commit();
        EXPECT_EQ(Mode(path), mode & ~027u);
    }
    struct {
        mode_t former;
        uid_t owner;
        gid_t group;
        bool asOther;  // a user 1000 of the group 1000 replaces it
        mode_t mode;
        uid_t newOwner;
        gid_t newGroup;
    } const cases[] = {
        {0640, 0, 0, false, 0640, 0, 0},          {04755, 1, 2, false, 04755, 1, 2},
        {06755, 0, 1000, true, 0755, 1000, 1000}, {0664, 0, 1, true, 0604, 1000, 1000},
        {0604, 0, 1, true, 0600, 1000, 1000},     {02770, 1000, 1, true, 0700, 1000, 1000},
    };
    if (geteuid() != 0) {
        return;
    }
    ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
    for (const auto& row : cases) {
        WriteFile(target, "former");
        ASSERT_EQ(chown(target.c_str(), row.owner, row.group), 0);
        ASSERT_EQ(chmod(target.c_str(), row.former), 0);
        EXPECT_EQ(End(Start([&] {
                      if (row.asOther) {
                          ASSERT_EQ(setgroups(0, nullptr), 0);
                          ASSERT_EQ(setresgid(1000, 1000, 1000), 0);
                          ASSERT_EQ(setresuid(1000, 1000, 1000), 0);
                      }
                      AtomicFile file(target, Existing::replace);
                      struct stat status {};
                      fstat(file.Descriptor(), &status);
                      EXPECT_EQ(status.st_mode & 07777, 0600u);
                      file.Commit();
                  })),
                  0);
        struct stat status {};
        ASSERT_EQ(stat(target.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, row.mode) << std::oct << row.former;
        EXPECT_EQ(status.st_uid, row.newOwner);
        EXPECT_EQ(status.st_gid, row.newGroup);
        fs::remove(target);
    }
}

// An access control list: user::6, user:5 named, group::, mask::, other::.
std::string List(unsigned user, unsigned group, unsigned mask, unsigned other) {
    std::string bytes("\2\0\0\0", 4);
    const auto add = [&](unsigned tag, unsigned rights, int id) {
        const std::uint16_t numbers[] = {htole16(static_cast<std::uint16_t>(tag)),
                                         htole16(static_cast<std::uint16_t>(rights))};
        const std::uint32_t number = htole32(static_cast<std::uint32_t>(id));
        bytes.append(reinterpret_cast<const char*>(numbers), sizeof numbers);
        bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
    };
    add(1, 6, -1);
    add(2, user, 5);
    add(4, group, -1);
    add(16, mask, -1);
    add(32, other, -1);
    return bytes;
}

TEST_P(AtomicFileTest, KeepsAccessControlLists) {
    const auto set = [](const fs::path& path, const char* which, const std::string& list) {
        return setxattr(path.c_str(), which, list.data(), list.size(), 0) == 0;
    };
    const auto get = [](const fs::path& path) {
        char bytes[100];
        const ssize_t length = getxattr(path.c_str(), accessList, bytes, sizeof bytes);
        return length < 0 ? "" : std::string(bytes, static_cast<std::size_t>(length));
    };
    WriteFile(target, "former");
    if (!set(target, accessList, List(7, 6, 4, 0))) {
        GTEST_SKIP() << "no access control lists here";
    }
    AtomicFile(target, Existing::replace).Commit();
    EXPECT_EQ(get(target), List(7, 6, 4, 0));
    EXPECT_EQ(Mode(target), 0640u);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(target.c_str(), 0, 1), 0);
        ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
        set(target, accessList, List(7, 6, 4, 5));
        EXPECT_EQ(End(Start([&] {
                      ASSERT_EQ(setgroups(0, nullptr), 0);
                      ASSERT_EQ(setresgid(1000, 1000, 1000), 0);
                      ASSERT_EQ(setresuid(1000, 1000, 1000), 0);
                      AtomicFile(target, Existing::replace).Commit();
                  })),
                  0);
        EXPECT_EQ(get(target), List(7, 0, 4, 4)) << "the group that could not be kept";
    }

    // The folder's list is for new files alone.
    WriteFile(target, "former");
    fs::remove(target);
    WriteFile(target, "former");
    ASSERT_EQ(chmod(target.c_str(), 0640), 0);
    ASSERT_TRUE(set(folder, "system.posix_acl_default", List(7, 6, 7, 5)));
    AtomicFile(target, Existing::replace).Commit();
    EXPECT_EQ(get(target), "");
    EXPECT_EQ(Mode(target), 0640u);
    AtomicFile(folder / "new", Existing::replace, 0664).Commit();
    EXPECT_EQ(get(folder / "new"), List(7, 6, 6, 4));
}

TEST_P(AtomicFileTest, LeftoversOfKilledProcessesAreRemoved) {
    calls.withoutTmpfile = true;
    WriteFile(folder / ".a.0123456789abcdef.tmp", "");
    WriteFile(folder / ".b.0123456789abcdef.tmp", "of another target");
    WriteFile(folder / ".a.0123456789abcdeg.tmp", "no such name");
    const AtomicFile held(target, Existing::replace);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = Start([&] {
        const AtomicFile killed(target, Existing::replace);
        EXPECT_EQ(write(ready[1], "", 1), 1);
        pause();
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 4);
    End(child, SIGKILL);
    calls.withoutTmpfile = GetParam();
    AtomicFile(target, Existing::replace).Commit();
    const std::string mine = fs::path(held.Path()).filename();
    EXPECT_TRUE(AtomicFile::IsTemporaryName(mine));
    EXPECT_FALSE(AtomicFile::IsTemporaryName(".a.0123456789abcdeg.tmp"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 4) << Names();
    EXPECT_TRUE(fs::exists(folder / mine) && fs::exists(target));
    close(ready[0]);
    close(ready[1]);
}

TEST_P(AtomicFileTest, AForkedChildChangesNothing) {
    WriteFile(target, "former");
    AtomicFile file(target, Existing::replace);
    Write(file, "new");
    EXPECT_EQ(End(Start([&] {
                  EXPECT_NE(Failure([&] { file.Commit(); }), "");
                  file.~AtomicFile();
              })),
              0);
    EXPECT_EQ(FileBytes(target), "former");
    const pid_t child = Start([] { pause(); });
    file.Commit();
    EXPECT_EQ(FileBytes(target), "new");
    EXPECT_NO_THROW(FileLock(target, {std::chrono::milliseconds(0), {}, {}}));
    End(child, SIGKILL);
}

TEST_P(AtomicFileTest, ReplacesOnlyTheFileThatIsLocked) {
    WriteFile(target, "former");
    const FileLock lock(target);
    AtomicFile file(lock);
    fs::rename(target, folder / "away");
    WriteFile(target, "of another");
    EXPECT_EQ(Failure([&] { file.Commit(); }),
              "cannot replace " + target + ": another file has taken its place");
    EXPECT_EQ(FileBytes(target), "of another");
    fs::rename(folder / "away", target);
    AtomicFile(lock).Commit();
    EXPECT_EQ(FileBytes(target), "");
}

TEST(Folder, NewFoldersAreSynced) {
    const TempFolder scratch;
    calls = Calls();
    const FileLock lock(scratch / "a/b/lock", {}, FileLock::Missing::create);
    EXPECT_EQ(calls.syncs, "dd");
}

INSTANTIATE_TEST_SUITE_P(, AtomicFileTest, ::testing::Bool());

}  // namespace
