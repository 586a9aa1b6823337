// Every call that an operation makes to its stream, and every allocation, fails in turn. What comes
// out is the stream's error; afterwards the object works on, and what the last save held is there.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include "hpack/Hpack.h"
#include "hpack/HpackFormat.h"
#include "tests/support/Allocations.h"
#include "tests/support/Bytes.h"
#include "tests/support/Errors.h"
#include "tests/support/FaultyStream.h"
#include "tests/support/TempFolder.h"

namespace {

using Contents = std::map<qtString, qtString>;

const Contents saved{{"", "empty key"},
                     {"alpha", "first letter"},
                     {"beta", "second"},
                     {"gamma", qtString(20000, 'g')},
                     {"none", ""}};

qtString SavedPackage() {
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
    package.Open(buffer, 'w');
    for (const auto& [key, body] : saved) {
        package.AddOrUpdate(key, body);
    }
    package.SetFileID(1, 2, 3);
    package.Close();
    return Bytes(*buffer);
}

struct Operation {
    const char* name;
    std::function<void(Hpack&)> run;
    /// The item whose record is written over: it alone may be damaged by a fault.
    std::optional<qtString> inPlace;
};

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> operations{
        {"GetItem to a string",
         [](Hpack& package) {
             qtString body;
             package.GetItem("alpha", body);
         },
         {}},
        {"GetItem to a SegBuf",
         [](Hpack& package) {
             SegBuf body;
             package.GetItem("gamma", body);
         },
         {}},
        {"AddOrUpdate of a new key",
         [](Hpack& package) { package.AddOrUpdate("new", "body"); },
         {}},
        {"AddOrUpdate that fits", [](Hpack& package) { package.AddOrUpdate("alpha", "short"); },
         "alpha"},
        {"AddOrUpdate that grows",
         [](Hpack& package) { package.AddOrUpdate("alpha", qtString(50, 'a')); },
         {}},
        {"Rename to a longer key",
         [](Hpack& package) { package.Rename("beta", "longer key"); },
         {}},
        {"Rename in place", [](Hpack& package) { package.Rename("beta", "b"); }, "beta"},
        {"Rename onto another", [](Hpack& package) { package.Rename("none", "beta"); }, "none"},
        {"Delete and save",
         [](Hpack& package) {
             package.Delete("alpha");
             package.SaveIndex();
         },
         {}},
        {"Add and save",
         [](Hpack& package) {
             package.AddOrUpdate("new", "body");
             package.SaveIndex();
         },
         {}},
        {"CalculateDeadSpace",
         [](Hpack& package) {
             unsigned int size = 0;
             unsigned int dead = 0;
             package.Delete("nothing");
             package.CalculateDeadSpace(size, dead);
         },
         {}},
        {"SetFileID", [](Hpack& package) { package.SetFileID(7, 8, 9); }, {}},
        {"SetState", [](Hpack& package) { package.SetState(9); }, {}},
        {"SetOldID", [](Hpack& package) { package.SetOldID(false); }, {}}};
    return operations;
}

Contents Read(Hpack& package, const Operation& operation) {
    Contents contents;
    std::vector<qtString> keys;
    package.GetIndex(keys);
    for (const qtString& key : keys) {
        if (key != operation.inPlace) {
            package.GetItem(key, contents[key]);
        }
    }
    contents.erase("after");
    return contents;
}

// The package holds what was saved or what the operation makes of that, apart from an item that was
// being written over.
void ExpectBeforeOrAfter(Hpack& package, const Operation& operation) {
    qtPtr<qtBuffer> buffer = NewBuffer(SavedPackage());
    Hpack other;
    other.Open(buffer, 'u');
    const Contents before = Read(other, operation);
    operation.run(other);
    const Contents after = Read(other, operation);
    const Contents now = Read(package, operation);
    EXPECT_TRUE(now == before || now == after) << operation.name << " lost an item";
}

TEST(HpackFault, EveryStreamCallOfEveryOperation) {
    const qtString bytes = SavedPackage();
    for (const Operation& operation : Operations()) {
        for (const bool sticky : {false, true}) {
            bool failed = true;
            for (long calls = 0; failed; ++calls) {
                SCOPED_TRACE(std::string(operation.name) + ", call " + std::to_string(calls));
                ASSERT_LT(calls, 1000);
                qtPtr<qtBuffer> buffer = NewBuffer(bytes);
                auto* const stream = new FaultyStream(*buffer);
                Hpack package;
                package.Open(qtPtrLight<Generic32>(stream), 'u');
                stream->FailAfter(calls, sticky);
                failed = false;
                try {
                    operation.run(package);
                } catch (const qtX<HioErr>& error) {
                    failed = true;
                    EXPECT_EQ(error.Arguments(), std::vector<qtString>{"faulty"});
                }
                stream->FailAfter(-1, false);
                ExpectBeforeOrAfter(package, operation);
                package.AddOrUpdate("after", "all");
                package.Close();

                Hpack again;
                again.Open(buffer, 'u');
                ExpectBeforeOrAfter(again, operation);
                qtString body;
                again.GetItem("after", body);
                EXPECT_EQ(body, "all");
            }
        }
    }
}

TEST(HpackFault, EveryStreamCallOfOpening) {
    const qtString bytes = SavedPackage();
    for (const char mode : {'r', 'u'}) {
        bool failed = true;
        for (long calls = 0; failed; ++calls) {
            qtPtr<qtBuffer> buffer = NewBuffer(bytes);
            auto* const stream = new FaultyStream(*buffer);
            stream->FailAfter(calls, true);
            Hpack package;
            failed = false;
            try {
                package.Open(qtPtrLight<Generic32>(stream), mode);
            } catch (const qtX<HioErr>&) {
                failed = true;
            } catch (const qtX<Hpack>& error) {
                failed = true;
                EXPECT_EQ(error.Number(), HpackErrors::indexUnreadable);
            }
            package.Close();
            EXPECT_EQ(Bytes(*buffer), bytes);
        }
    }
}

// What fails here has written nothing over: no item may be missing.
TEST(HpackFault, EveryAllocationOfEveryOperation) {
    const qtString bytes = SavedPackage();
    for (Operation operation : Operations()) {
        operation.inPlace.reset();
        bool failed = true;
        for (long allocations = 0; failed; ++allocations) {
            SCOPED_TRACE(std::string(operation.name) + ", " + std::to_string(allocations));
            qtPtr<qtBuffer> buffer = NewBuffer(bytes);
            Hpack package;
            package.Open(buffer, 'u');
            failed = false;
            Allocations::untilFailure = allocations;
            try {
                operation.run(package);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            Allocations::untilFailure = -1;
            ExpectBeforeOrAfter(package, operation);
            package.Close();
            package.Open(buffer, 'r');
            ExpectBeforeOrAfter(package, operation);
        }
    }
}

// Things by the name of a package that are no files of bytes: an error, and no waiting.
TEST(HpackFault, WhatIsNoPackageFile) {
    const TempFolder folder;
    const qtString fifo = folder / "fifo";
    const qtString file = folder / "file";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    WriteFile(file, SavedPackage());
    chmod(file.c_str(), 0);
    struct Case {
        qtString name;
        const char* modes;
        std::vector<int> errors;
    };
    std::vector<Case> cases = {{fifo, "ru", {HioErrors::read, HioErrors::open}},
                               {fifo, "w", {HioErrors::open}},
                               {folder.Path().string(), "r", {HioErrors::read}},
                               {folder.Path().string(), "uw", {HioErrors::open}},
                               {folder / "missing" + "/x", "ruw", {HioErrors::open}},
                               {file + "/x", "ruw", {HioErrors::open}},
                               {"/dev/null", "ru", {HioErrors::read}}};
    if (geteuid() != 0) {
        cases.push_back({file, "ruw", {HioErrors::open}});
    }
    for (const Case& wrong : cases) {
        for (const char* mode = wrong.modes; *mode != 0; ++mode) {
            SCOPED_TRACE(wrong.name + " " + *mode);
            Hpack package;
            try {
                package.Open(wrong.name, *mode);
                ADD_FAILURE() << "it opens";
            } catch (const qtX<HioErr>& error) {
                EXPECT_EQ(std::count(wrong.errors.begin(), wrong.errors.end(), error.Number()), 1)
                    << error.ErrorString();
            }
            EXPECT_NO_THROW(package.Close());
        }
    }
}

// A file that is cut while it is open: what is gone is an error, what is left can be read.
TEST(HpackFault, FileThatShrinksWhileItIsOpen) {
    const TempFolder folder;
    const qtString name = folder / "package";
    const qtString bytes = SavedPackage();
    for (std::size_t length = 16; length < bytes.size(); length += 997) {
        WriteFile(name, bytes);
        Hpack package;
        package.Open(name, 'u');
        std::filesystem::resize_file(std::string(name), length);
        for (const auto& [key, body] : saved) {
            unsigned int place[2];
            qtString value;
            try {
                package.GetItem(key, value);
                EXPECT_EQ(value, body);
            } catch (const qtX<HioErr>& error) {
                EXPECT_EQ(error.Number(), HioErrors::read);
            }
            try {
                package.GetKeyInfo(key, place[0], place[1]);
            } catch (const qtX<HioErr>& error) {
                EXPECT_EQ(error.Number(), HioErrors::read);
            }
        }
        package.AddAtOffset("", qtString("in place"), HpackFormat::headerSize);
        package.SaveIndex();
        Hpack other;
        other.Open(name, 'r');
        package.AddOrUpdate("new", "added");
        package.Close();
        package.Open(name, 'r');
        qtString value;
        package.GetItem("new", value);
        EXPECT_EQ(value, "added");
    }
}

// A limit on the size of files stands for a full disk: every operation ends in an error or is done,
// and the last save stays.
TEST(HpackFault, NoRoomForTheFile) {
    const TempFolder folder;
    const qtString name = folder / "package";
    const qtString bytes = SavedPackage();
    rlimit former{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerHandler = std::signal(SIGXFSZ, SIG_IGN);
    for (const Operation& operation : Operations()) {
        for (const std::size_t room : {0UL, 10UL, 100UL}) {
            SCOPED_TRACE(operation.name + std::string(", room ") + std::to_string(room));
            WriteFile(name, bytes);
            const rlimit limit = {bytes.size() + room, former.rlim_max};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            Hpack package;
            package.Open(name, 'u');
            try {
                operation.run(package);
                package.Close();
            } catch (const qtX<HioErr>& error) {
                EXPECT_TRUE(error.Number() == HioErrors::write ||
                            error.Number() == HioErrors::close);
            }
            EXPECT_NO_THROW(package.Close());
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);
            package.Open(name, 'u');
            ExpectBeforeOrAfter(package, operation);
        }
    }
    std::signal(SIGXFSZ, formerHandler);
}

// A disk that fills up while items are added: every save that was done stays, and when there is
// room again the package goes on.
TEST(HpackFault, NoRoomOnTheDisk) {
    const TempFolder folder;
    const char* const disk = folder.Path().c_str();
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", disk, "tmpfs", 0, "size=128k") != 0) {
        GTEST_SKIP() << "no file system may be mounted here";
    }
    const qtString name = folder / "package";
    const qtString filler = folder / "filler";
    WriteFile(filler, std::string(65536, 'x'));
    const qtString body(3000, 'b');
    Hpack package;
    package.Open(name, 'w');
    package.Close();
    unsigned int added = 0;
    for (const unsigned int fitting : {15U, 30U}) {
        package.Open(name, 'u');
        const auto addUntilItFails = [&] {
            for (;; ++added) {
                package.AddOrUpdate(Hpack::MakeStringKey(added), body);
                package.SaveIndex();
            }
        };
        ExpectError<HioErr>(addUntilItFails, HioErrors::write, "Write error in file " + name,
                            {name});
        EXPECT_GE(added, fitting);
        package.Close();
        package.Open(name, 'r');
        for (unsigned int number = 0; number < added; ++number) {
            qtString value;
            package.GetItem(Hpack::MakeStringKey(number), value);
            EXPECT_EQ(value, body);
        }
        std::filesystem::remove(std::string(filler));
    }
    package.Close();
    umount(disk);
}

}  // namespace
