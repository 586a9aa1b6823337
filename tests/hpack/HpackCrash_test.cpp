// A program that stops while it changes a package: the package opens with the state of a completed
// save, or what that save held is recovered, but for what was being written over.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <set>

#include "hpack/HpackFormat.h"
#include "hpack/HpackItemWriter.h"
#include "tests/support/Attempts.h"
#include "tests/support/Processes.h"
#include "tests/support/TempFolder.h"

namespace {

using Random = std::mt19937;

/// Changes of a package between two saves, and what they may leave of its items.
struct Session {
    Session(const Contents& saved, Random& random, std::size_t largest)
        : before(saved), after(saved) {
        for (auto count = 1 + random() % 6; count-- > 0;) {
            changes.push_back(RandomChange(random, after, [&] {
                const auto length = random() % 4 == 0 ? random() % largest : random() % 40;
                return qtString(length, static_cast<char>('0' + random() % 10));
            }));
            const Change& change = changes.back();
            const auto former = after.find(change.key);
            if (change.kind == Change::adding) {
                written[change.key].insert(change.with);
            }
            if (former != after.end() &&
                (change.kind != Change::adding || change.with.size() <= former->second.size())) {
                replaced.insert(change.key);
            }
            if (change.kind == Change::renaming) {
                replaced.insert(change.with);
            }
            change.Do(after);
        }
    }

    /// Adds some of the items that are appended in pieces.
    void Do(Hpack& package) const {
        for (const Change& change : changes) {
            const auto length = static_cast<unsigned int>(change.with.size());
            if (change.kind != Change::adding || length % 2 == 0 ||
                length <= Place(package, change.key).second) {
                change.Do(package);
                continue;
            }
            HpackItemWriter item(package, change.key);
            item.Write(change.with.data(), length / 2);
            item.Write(change.with.data() + length / 2, length - length / 2);
            item.Finish();
        }
    }

    bool Wrote(const qtString& key, const qtString& body) const {
        return written.count(key) != 0 && written.at(key).count(body) != 0;
    }

    Contents before;
    Contents after;
    std::map<qtString, std::set<qtString>> written;  // the bodies of each key
    std::vector<Change> changes;
    std::set<qtString> replaced;  // written over, renamed or deleted: these may be lost
};

enum Outcome { opensBefore, opensAfter, opensTorn, recovered, lost, outcomes };

/// What has become of a package that was in `session` when it was stopped.
/// `inOrder`: what was written first is there before what was written later.
Outcome Judge(const qtString& image, const Session& session, bool inOrder = true) {
    // How many items of a state are not there as they were, or as they were to be.
    const auto missing = [&](const Contents& items, const Contents& state) {
        return std::count_if(state.begin(), state.end(), [&](const auto& wanted) {
            const auto& [key, body] = wanted;
            const auto item = items.find(key);
            const bool there =
                item != items.end() && (item->second == body || session.Wrote(key, item->second));
            return !there && session.replaced.count(key) == 0 &&
                   (inOrder || session.written.count(key) == 0);
        });
    };
    try {
        Opened package(image);
        Contents items;
        for (const qtString& key : Keys(package)) {
            const bool readable = Succeeds([&] { package.GetItem(key, items[key]); });
            items[key] = readable ? items[key] : "torn";
        }
        for (const Outcome outcome : {opensAfter, opensBefore}) {
            const Contents& state = outcome == opensAfter ? session.after : session.before;
            const bool sameKeys =
                std::equal(items.begin(), items.end(), state.begin(), state.end(),
                           [](const auto& a, const auto& b) { return a.first == b.first; });
            if (sameKeys && missing(items, state) == 0) {
                // An item that is being written over is the only one that may be torn.
                return items == state ? outcome : opensTorn;
            }
        }
    } catch (const qtXbase&) {
        // The index is torn.
    }
    Reading stream(image);
    HpackRecoverReport report;
    Opened package(Recovered(stream, report, true));
    return missing(Items(package), session.before) == 0 ? recovered : lost;
}

void Print(const long (&counts)[outcomes]) {
    std::printf("before %ld, after %ld, item torn %ld, recovered %ld, lost %ld\n",
                counts[opensBefore], counts[opensAfter], counts[opensTorn], counts[recovered],
                counts[lost]);
}

class RecordingStream : public Hmemory {
public:
    struct Written {
        unsigned int at;
        qtString bytes;
    };

    void Write(char* data, unsigned int count) override {
        log.push_back({Tell(), qtString(data, count)});
        Hmemory::Write(data, count);
    }

    std::vector<Written> log;
};

void Apply(qtString& image, const RecordingStream::Written& write, std::size_t count) {
    image.resize(std::max(image.size(), write.at + count), '\0');
    image.replace(write.at, count, write.bytes, 0, count);
}

TEST(HpackCrash, EveryPrefixOfTheWritesOfASession) {
    long counts[outcomes] = {};
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        Random random(seed);
        Random choices(seed);
        Contents items = {{"a", "1"}, {"bb", "22"}, {"ccc", "333"}, {"d", qtString(300, 'd')}};
        qtString image = Package(items);
        for (int round = 0; round < 6; ++round) {
            const Session session(items, random, 400);
            qtPtr<qtBuffer> buffer = NewBuffer(image);
            auto* const stream = new RecordingStream;
            const qtPtrLight<Generic32> shared(stream);
            stream->Open(*buffer, 'u');
            Hpack package;
            package.Open(shared, 'u');
            session.Do(package);
            package.Close();
            const auto judge = [&](const qtString& stopped, bool inOrder) {
                const Outcome outcome = Judge(stopped, session, inOrder);
                ++counts[outcome];
                ASSERT_NE(outcome, lost) << "seed " << seed << ", round " << round;
            };
            qtString written = image;
            for (const auto& write : stream->log) {
                for (std::size_t count = 0; count < write.bytes.size(); ++count) {
                    qtString cut = written;
                    Apply(cut, write, count);
                    judge(cut, true);
                }
                Apply(written, write, write.bytes.size());
            }
            ASSERT_EQ(Judge(written, session), opensAfter);
            // Power lost: what was written last may be there without what was written before, and
            // a record without its body.
            for (int choice = 0; choice < 30; ++choice) {
                qtString some = image;
                for (const auto& write : stream->log) {
                    if (choices() % 2 == 0) {
                        Apply(some, write, write.bytes.size());
                    }
                }
                judge(some, false);
            }
            image = written;
            items = session.after;
        }
    }
    Print(counts);
    EXPECT_GT(counts[recovered], 100);
}

// The writer: one session after the other, each reported when it is saved.
void ChangeUntilKilled(const qtString& name, Contents items, Random random, int reports) {
    do {
        const Session session(items, random, 200000);
        Hpack package;
        package.Open(name, 'u');
        session.Do(package);
        package.Close();
        items = session.after;
    } while (write(reports, "s", 1) == 1);
}

TEST(HpackCrash, KilledWritersLoseNothing) {
    const int rounds = KillRounds(200);
    const TempFolder folder;
    const qtString name = folder / "package";
    Contents items;
    for (std::size_t i = 0; i < 300; ++i) {
        items[Word(i) + "kept for all rounds"] = "kept";
    }
    const Contents first = items;
    Random random(3);
    long saves = 0;
    long counts[outcomes] = {};
    for (int round = 0; round < rounds; ++round) {
        if (round % 10 == 0) {
            items = first;
            WriteFile(name, Package(items));
        }
        Random script(random());
        const auto write = [&](int reports) { ChangeUntilKilled(name, items, script, reports); };
        // The same script again, as far as it was reported.
        for ([[maybe_unused]] const char report : KillWriters<char>({write}, random, 6000, false)) {
            items = Session(items, script, 200000).after;
            ++saves;
        }
        const Session stopped(items, script, 200000);
        const Outcome outcome = Judge(FileBytes(name), stopped);
        ++counts[outcome];
        ASSERT_NE(outcome, lost) << "round " << round;
        items = outcome == opensAfter ? stopped.after : items;
        if (outcome != opensBefore && outcome != opensAfter) {
            WriteFile(name, Package(items));
        }
    }
    std::printf("%d kills, %ld saves: ", rounds, saves);
    Print(counts);
    EXPECT_GT(saves, 0);
}

}  // namespace
