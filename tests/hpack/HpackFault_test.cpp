// Every call that an operation makes to its stream, and every allocation, fails in turn. What comes
// out is the stream's error; afterwards the object works on, and what the last save held is there.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>

#include "hpack/Hpack.h"
#include "tests/support/Allocations.h"
#include "tests/support/Bytes.h"
#include "tests/support/FaultyStream.h"

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

TEST(HpackFault, EveryAllocationOfEveryOperation) {
    const qtString bytes = SavedPackage();
    for (const Operation& operation : Operations()) {
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

}  // namespace
