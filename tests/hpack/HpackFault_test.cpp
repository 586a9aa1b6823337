// Every call that an operation makes to its stream, and every allocation, fails in turn. What comes
// out is the stream's error; afterwards the object works on, and what the last save held is there.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>

#include "tests/support/Allocations.h"
#include "tests/support/Attempts.h"
#include "tests/support/Errors.h"
#include "tests/support/FaultyStream.h"
#include "tests/support/TempFolder.h"

namespace {

const Contents saved{{"", "empty key"},
                     {"alpha", "first letter"},
                     {"beta", "second"},
                     {"gamma", qtString(20000, 'g')},
                     {"large", qtString(150000, 'l')},
                     {"none", ""}};

const qtString savedBytes =
    Updated(Package(saved), [](Hpack& package) { package.SetFileID(1, 2, 3); });

struct Operation {
    const char* name;
    std::function<void(Hpack&)> run;
    /// The item whose record is written over: it alone may be damaged by a fault.
    std::optional<qtString> inPlace = {};
};

template <class Value>
void Get(Hpack& package, const qtString& key) {
    Value value;
    package.GetItem(key, value);
}

const Operation operations[] = {
    {"GetItem to a string", [](Hpack& p) { Get<qtString>(p, "alpha"); }},
    {"GetPart",
     [](Hpack& p) {
         char part[3];
         p.GetPart("gamma", 19000, part, sizeof part);
     }},
    {"GetLayout", [](Hpack& p) { p.GetLayout(); }},
    {"GetItem to a SegBuf", [](Hpack& p) { Get<SegBuf>(p, "gamma"); }},
    {"AddOrUpdate of a new key", [](Hpack& p) { p.AddOrUpdate("new", "body"); }},
    {"AddOrUpdate that fits", [](Hpack& p) { p.AddOrUpdate("alpha", "short"); }, "alpha"},
    {"AddOrUpdate that grows", [](Hpack& p) { p.AddOrUpdate("alpha", qtString(50, 'a')); }},
    {"Rename to a longer key", [](Hpack& p) { p.Rename("beta", "longer key"); }},
    {"Rename in place", [](Hpack& p) { p.Rename("beta", "b"); }, "beta"},
    {"Rename of a large item", [](Hpack& p) { p.Rename("large", "larger"); }},
    {"Rename of a large item in place", [](Hpack& p) { p.Rename("large", "l"); }, "large"},
    {"Rename onto another", [](Hpack& p) { p.Rename("none", "beta"); }, "none"},
    {"Delete and save",
     [](Hpack& p) {
         p.Delete("alpha");
         p.SaveIndex();
     }},
    {"Add and save",
     [](Hpack& p) {
         p.AddOrUpdate("new", "body");
         p.SaveIndex();
     }},
    {"CalculateDeadSpace",
     [](Hpack& p) {
         p.Delete("nothing");
         DeadSpace(p);
     }},
    {"SetFileID", [](Hpack& p) { p.SetFileID(7, 8, 9); }},
    {"SetState", [](Hpack& p) { p.SetState(9); }},
    {"SetOldID", [](Hpack& p) { p.SetOldID(false); }}};

Contents Read(Hpack& package, const Operation& operation) {
    Contents contents;
    for (const qtString& key : Keys(package)) {
        if (key != operation.inPlace && key != "after") {
            package.GetItem(key, contents[key]);
        }
    }
    return contents;
}

// The package holds what was saved or what the operation makes of that, apart from an item that was
// being written over.
void ExpectBeforeOrAfter(Hpack& package, const Operation& operation) {
    Opened other(savedBytes, 'u');
    const Contents before = Read(other, operation);
    operation.run(other);
    const Contents after = Read(other, operation);
    const Contents now = Read(package, operation);
    EXPECT_TRUE(now == before || now == after) << operation.name << " lost an item";
}

// Runs `attempt` with 0, 1, 2... for each operation, for as long as it says that something failed.
void ForEachFault(const std::function<bool(const Operation&, long)>& attempt) {
    for (const Operation& operation : operations) {
        bool failed = true;
        for (long fault = 0; failed; ++fault) {
            SCOPED_TRACE(std::string(operation.name) + ", " + std::to_string(fault));
            ASSERT_LT(fault, 1000);
            failed = attempt(operation, fault);
        }
    }
}

// Runs `action`. @return the number of the stream's error, or -1
template <class Action>
int ErrorOf(Action action) {
    try {
        action();
        return -1;
    } catch (const qtX<HioErr>& error) {
        EXPECT_EQ(error.Arguments().size(), 1U);
        return error.Number();
    }
}

TEST(HpackFault, EveryStreamCallOfEveryOperation) {
    for (const bool sticky : {false, true}) {
        ForEachFault([&](const Operation& operation, long calls) {
            qtPtr<qtBuffer> buffer = NewBuffer(savedBytes);
            auto* const stream = new FaultyStream(*buffer);
            Hpack package;
            package.Open(qtPtrLight<Generic32>(stream), 'u');
            stream->FailAfter(calls, sticky);
            const bool failed = ErrorOf([&] { operation.run(package); }) >= 0;
            stream->FailAfter(-1, false);
            ExpectBeforeOrAfter(package, operation);
            package.AddOrUpdate("after", "all");
            package.Close();
            package.Open(buffer, 'u');
            ExpectBeforeOrAfter(package, operation);
            qtString body;
            package.GetItem("after", body);
            EXPECT_EQ(body, "all");
            return failed;
        });
    }
}

// A stream with a gap after its first bytes, which nobody may use, so that it ends near 2^31.
class FarStream : public FaultyStream {
public:
    FarStream(qtBuffer& bytes, unsigned int end)
        : FaultyStream(bytes), near(FaultyStream::GetFileSize()), gap(end - near) {}
    ~FarStream() noexcept(false) override = default;

    unsigned int Tell() override { return Far(FaultyStream::Tell()); }
    void Seek(int offset) override {
        const auto far = static_cast<unsigned int>(offset);
        FaultyStream::Seek(static_cast<int>(far < near ? far : far - gap));
    }
    unsigned int SeekEnd() override { return Far(FaultyStream::SeekEnd()); }
    unsigned int GetFileSize() override { return Far(FaultyStream::GetFileSize()); }

private:
    unsigned int Far(unsigned int offset) const { return offset < near ? offset : offset + gap; }

    unsigned int near;
    unsigned int gap;
};

// Every failure of a save for which there is just room. What the save has reserved stays reserved,
// whatever is refused before it is tried again.
TEST(HpackFault, SaveNearTheLastOffset) {
    const unsigned int recordSize = 12 + 3;
    const unsigned int indexSize = 8 + 7 * 8 + 3 + 0 + 5 + 4 + 5 + 5 + 4;
    bool saves = false;
    for (long calls = 0; !saves; ++calls) {
        qtPtr<qtBuffer> buffer = NewBuffer(savedBytes + qtString(70000, '\0'));
        auto* const stream =
            new FarStream(*buffer, HpackFormat::maxStreamSize - recordSize - indexSize);
        Hpack package;
        package.Open(qtPtrLight<Generic32>(stream), 'u');
        const auto expectRefused = [&](const std::function<void()>& action) {
            ExpectError<HioErr>(action, HioErrors::write, "Hio buffer is not open for writing",
                                {"faulty"});
        };
        package.AddOrUpdate("new", "");
        expectRefused([&] { package.WriteIndex(0); });
        stream->FailAfter(calls, false);
        saves = ErrorOf([&] { package.SaveIndex(); }) < 0;
        stream->FailAfter(-1, false);
        expectRefused([&] { package.AddOrUpdate("more", ""); });
        package.AddOrUpdate("alpha", "in place");
        package.Close();
        EXPECT_EQ(Bytes(*buffer).substr(4, 4), Word(HpackFormat::maxStreamSize - indexSize));
    }
}

TEST(HpackFault, EveryStreamCallOfOpening) {
    for (const char mode : {'r', 'u'}) {
        bool opened = false;
        for (long calls = 0; !opened; ++calls) {
            qtPtr<qtBuffer> buffer = NewBuffer(savedBytes);
            auto* const stream = new FaultyStream(*buffer);
            stream->FailAfter(calls, true);
            Hpack package;
            opened = Succeeds([&] { package.Open(qtPtrLight<Generic32>(stream), mode); });
            package.Close();
            EXPECT_EQ(Bytes(*buffer), savedBytes);
        }
    }
}

// @return false when `action` fails as the allocation after so many others does
template <class Action>
bool SucceedsInMemory(long allocations, Action action) {
    Allocations::untilFailure = allocations;
    bool succeeds = true;
    try {
        action();
    } catch (const std::bad_alloc&) {
        succeeds = false;
    }
    Allocations::untilFailure = -1;
    return succeeds;
}

// What fails here has overwritten nothing: no item may be missing, in the object or in the stream.
TEST(HpackFault, EveryAllocationOfEveryOperation) {
    ForEachFault([](Operation operation, long allocations) {
        const bool inPlace = operation.inPlace.has_value();
        operation.inPlace.reset();
        Opened package(savedBytes, 'u');
        const bool failed = !SucceedsInMemory(allocations, [&] { operation.run(package); });
        ExpectBeforeOrAfter(package, operation);
        if (failed && !inPlace) {
            Opened stored(Bytes(*package.buffer));
            ExpectBeforeOrAfter(stored, operation);
        }
        package.Close();
        package.Open(package.buffer, 'r');
        ExpectBeforeOrAfter(package, operation);
        return failed;
    });
}

// Destroys what is deleted, so that using it still fails.
void Overwrite(const void* block) {
    std::memset(const_cast<void*>(block), 0xa5, malloc_usable_size(const_cast<void*>(block)));
}

// The package alone holds the buffer that it is open in.
TEST(HpackFault, EveryAllocationOfOpeningAgain) {
    Allocations::onDelete = Overwrite;
    bool opened = false;
    for (long allocations = 0; !opened; ++allocations) {
        Opened package(savedBytes, 'u');
        package.buffer = NewBuffer(Package({{"other", ""}}));
        opened = SucceedsInMemory(allocations, [&] { package.Open(package.buffer, 'u'); });
        EXPECT_EQ(package.Contains("other"), opened);
        if (package.IsOpen() && !opened) {
            EXPECT_EQ(Items(package), saved);
        }
        // The first opening makes more of the object.
        Hpack fresh;
        SucceedsInMemory(allocations, [&] { fresh.Open(package.buffer, 'r'); });
    }
    Allocations::onDelete = nullptr;
}

// So many lookups build a table, perhaps in the middle of renaming, where no memory may be missing.
TEST(HpackFault, EveryAllocationOfRenamingAfterManyLookups) {
    Contents many;
    for (unsigned int number = 0; number < 4096; ++number) {
        many[Hpack::MakeStringKey(number)] = "body";
    }
    const qtString bytes = Package(many);
    const qtString key = Hpack::MakeStringKey(7);
    const qtString last = "\xff";
    for (int lookups = 250; lookups < 260; ++lookups) {
        for (long allocations = 0; allocations < 12; ++allocations) {
            Opened package(bytes, 'u');
            for (int i = 0; i < lookups; ++i) {
                package.Contains(key);
            }
            const bool renamed = SucceedsInMemory(allocations, [&] { package.Rename(key, last); });
            Get<qtString>(package, renamed ? last : key);
        }
    }
}

// Things by the name of a package that are no files of bytes: an error, and no waiting.
TEST(HpackFault, WhatIsNoPackageFile) {
    const TempFolder folder;
    const qtString file = folder / "file";
    WriteFile(file, savedBytes);
    chmod(file.c_str(), 0);
    const std::tuple<qtString, const char*, int> cases[] = {
        {folder / "", "r", HioErrors::read},
        {folder / "", "uw", HioErrors::open},
        {folder / "missing/x", "ruw", HioErrors::open},
        {file + "/x", "ruw", HioErrors::open},
        {"/dev/null", "ru", HioErrors::read},
        {file, geteuid() == 0 ? "" : "ruw", HioErrors::open}};
    for (const auto& [name, modes, error] : cases) {
        for (const char mode : qtString(modes)) {
            Hpack package;
            EXPECT_EQ(ErrorOf([&, &n = name] { package.Open(n, mode); }), error) << name << mode;
            EXPECT_NO_THROW(package.Close());
        }
    }
}

TEST(HpackFault, FileThatShrinksWhileItIsOpen) {
    const TempFolder folder;
    const qtString name = folder / "package";
    for (std::size_t length = 16; length < savedBytes.size(); length += 997) {
        WriteFile(name, savedBytes);
        Hpack package;
        package.Open(name, 'u');
        std::filesystem::resize_file(std::string(name), length);
        qtString value;
        for (const auto& item : saved) {
            const int error = ErrorOf([&] { package.GetItem(item.first, value); });
            EXPECT_TRUE(error == HioErrors::read || (error == -1 && value == item.second));
            ErrorOf([&] { Place(package, item.first); });
        }
        package.AddAtOffset("", qtString("in place"), HpackFormat::headerSize);
        package.SaveIndex();
        Hpack other;
        other.Open(name, 'r');
        package.AddOrUpdate("new", "added");
        package.Close();
        package.Open(name, 'r');
        package.GetItem("new", value);
        EXPECT_EQ(value, "added");
    }
}

// A file at its limit: closing fails for as long as not everything is in the file. With room again
// it succeeds.
TEST(HpackFault, NoRoomInTheFile) {
    const TempFolder folder;
    const qtString name = folder / "package";
    std::signal(SIGXFSZ, SIG_IGN);
    const auto setRoom = [](rlim_t bytes) {
        const rlimit room{bytes, RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
    };
    WriteFile(name, Package({}));
    Contents added;
    for (const std::size_t fitting : {15, 30}) {
        setRoom(fitting * 4096);
        Hpack package;
        package.Open(name, 'u');
        const auto addUntilItFails = [&] {
            for (;;) {
                const qtString key = Word(added.size());
                package.AddOrUpdate(key, qtString(3000, 'b'));
                added[key] = qtString(3000, 'b');
                package.SaveIndex();
            }
        };
        const qtString text = "Invalid file offset in file " + name;
        ExpectError<HioErr>(addUntilItFails, HioErrors::position, text, {name});
        EXPECT_GT(added.size(), fitting);
        for (int attempt = 0; attempt < 2; ++attempt) {
            ExpectError<HioErr>([&] { package.Close(); }, HioErrors::position, text, {name});
        }
        setRoom((fitting + 4) * 4096);
        package.Close();
        package.Open(name, 'r');
        EXPECT_EQ(Items(package), added);
    }
    setRoom(RLIM_INFINITY);
}

}  // namespace
