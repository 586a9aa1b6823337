// A program that stops while it changes a package: the package opens with the state of a completed
// save, or what that save held is recovered, but for what was being written over.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <random>
#include <set>

#include "hpack/HpackFormat.h"
#include "tests/support/Recovered.h"
#include "tests/support/TempFolder.h"

namespace {

using Random = std::mt19937;

/// Changes of a package between two saves, and what they may leave of its items.
struct Session {
    Session(const Contents& saved, Random& random, std::size_t largest) : before(saved) {
        after = saved;
        for (auto count = 1 + random() % 6; count-- > 0;) {
            const qtString key(1 + random() % 3, static_cast<char>('a' + random() % 6));
            const auto length = random() % 4 == 0 ? random() % largest : random() % 40;
            qtString body(length, static_cast<char>('0' + random() % 10));
            const auto found = after.find(key);
            if (found == after.end()) {
                Add([=](Hpack& package) { package.AddOrUpdate(key, body); });
                after[key] = body;
                written.insert({key, body});
            } else if (random() % 4 == 0) {
                Add([=](Hpack& package) { package.Delete(key); });
                replaced.insert(key);
                after.erase(key);
            } else if (random() % 4 == 0) {
                const qtString other(1 + random() % 3, static_cast<char>('a' + random() % 6));
                Add([=](Hpack& package) { package.Rename(key, other); });
                replaced.insert({key, other});
                const qtString moved = found->second;
                after.erase(key);
                after[other] = moved;
            } else {
                Add([=](Hpack& package) { package.AddOrUpdate(key, body); });
                if (body.size() <= found->second.size()) {
                    replaced.insert(key);
                }
                after[key] = body;
                written.insert({key, body});
            }
        }
    }
    void Add(std::function<void(Hpack&)> change) { changes.push_back(std::move(change)); }

    bool Wrote(const qtString& key, const qtString& body) const {
        return written.count({key, body}) != 0;
    }

    bool Touched(const qtString& key) const {
        const auto first = written.lower_bound({key, ""});
        return first != written.end() && first->first == key;
    }

    Contents before;
    Contents after;
    std::set<std::pair<qtString, qtString>> written;
    std::vector<std::function<void(Hpack&)>> changes;
    std::set<qtString> replaced;  // written over, renamed or deleted: these may be lost
};

// `older`: a version from before the last save of the one item of which the entry in the index was
// just being written, where another item had been renamed to its key.
enum Outcome { opensBefore, opensAfter, opensTorn, recovered, older, lost, outcomes };

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
            return !there && session.replaced.count(key) == 0 && (inOrder || !session.Touched(key));
        });
    };
    try {
        qtPtr<qtBuffer> buffer = NewBuffer(image);
        Hpack package;
        package.Open(buffer, 'r');
        std::vector<qtString> keys;
        package.GetIndex(keys);
        Contents items;
        for (const qtString& key : keys) {
            try {
                package.GetItem(key, items[key]);
            } catch (const qtXbase&) {
                items[key] = "torn";
            }
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
    const Contents items = Recover(image, true).items;
    const bool allThere =
        std::all_of(session.before.begin(), session.before.end(), [&](const auto& item) {
            return items.count(item.first) != 0 || session.replaced.count(item.first) != 0;
        });
    const auto count = missing(items, session.before);
    return count == 0 ? recovered : count == 1 && allThere ? older : lost;
}

void Print(const long (&counts)[outcomes]) {
    const char* const names[] = {"before", "after", "item torn", "recovered", "older", "lost"};
    for (int outcome = 0; outcome < outcomes; ++outcome) {
        std::printf("%s %ld%s", names[outcome], counts[outcome], outcome == lost ? "\n" : ", ");
    }
}

/// A stream that keeps what is written, write by write.
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

qtString Created(const Contents& items) {
    qtPtr<qtBuffer> buffer = NewBuffer();
    Hpack package;
    package.Open(buffer, 'w');
    for (const auto& [key, body] : items) {
        package.AddOrUpdate(key, body);
    }
    package.Close();
    return Bytes(*buffer);
}

TEST(HpackCrash, EveryPrefixOfTheWritesOfASession) {
    long counts[outcomes] = {};
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        Random random(seed);
        Contents items = {{"a", "1"}, {"bb", "22"}, {"ccc", "333"}, {"d", qtString(300, 'd')}};
        qtString image = Created(items);
        for (int round = 0; round < 6; ++round) {
            const Session session(items, random, 400);
            qtPtr<qtBuffer> buffer = NewBuffer(image);
            auto* const stream = new RecordingStream;
            const qtPtrLight<Generic32> shared(stream);
            stream->Open(*buffer, 'u');
            Hpack package;
            package.Open(shared, 'u');
            for (const auto& change : session.changes) {
                change(package);
            }
            package.Close();
            const auto judge = [&](const qtString& stopped, bool inOrder) {
                const Outcome outcome = Judge(stopped, session, inOrder);
                ++counts[outcome];
                ASSERT_NE(outcome, lost) << "seed " << seed << ", round " << round;
            };
            qtString whole = image;
            for (const auto& write : stream->log) {
                for (std::size_t count = 0; count < write.bytes.size(); ++count) {
                    qtString cut = whole;
                    Apply(cut, write, count);
                    judge(cut, true);
                }
                Apply(whole, write, write.bytes.size());
            }
            ASSERT_EQ(Judge(whole, session), opensAfter);
            // Power lost: what was written last may be there without what was written before, and
            // a record without its body.
            for (int choice = 0; choice < 30; ++choice) {
                qtString some = image;
                for (const auto& write : stream->log) {
                    if (random() % 2 == 0) {
                        Apply(some, write, write.bytes.size());
                    }
                }
                judge(some, false);
            }
            image = whole;
            items = session.after;
        }
    }
    Print(counts);
    EXPECT_GT(counts[recovered], 100);
    EXPECT_LE(counts[older], 20);
}

// The writer: one session after the other, each reported when it is saved.
[[noreturn]] void ChangeUntilKilled(const qtString& name, Contents items, Random random,
                                    int reports) {
    for (;;) {
        const Session session(items, random, 200000);
        Hpack package;
        package.Open(name, 'u');
        for (const auto& change : session.changes) {
            change(package);
        }
        package.Close();
        if (write(reports, "s", 1) != 1) {
            _exit(1);
        }
        items = session.after;
    }
}

// VANTRY_KILL_ROUNDS sets the number of rounds.
TEST(HpackCrash, KilledWritersLoseNothing) {
    const char* const wanted = std::getenv("VANTRY_KILL_ROUNDS");
    const int rounds = wanted == nullptr ? 200 : std::atoi(wanted);
    const TempFolder folder;
    const qtString name = folder / "package";
    Contents items;
    for (int i = 0; i < 300; ++i) {
        items[Hpack::MakeStringKey(static_cast<unsigned int>(i)) + "kept for all rounds"] = "kept";
    }
    const Contents first = items;
    Random random(3);
    long saves = 0;
    long counts[outcomes] = {};
    for (int round = 0; round < rounds; ++round) {
        if (round % 10 == 0) {
            items = first;
            WriteFile(name, Created(items));
        }
        int reports[2];
        ASSERT_EQ(pipe(reports), 0);
        const Random script(random());
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ChangeUntilKilled(name, items, script, reports[1]);
        }
        close(reports[1]);
        usleep(static_cast<useconds_t>(random() % 6000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer gave up";
        // The same script again, as far as it was reported.
        Random again(script);
        for (char report = 0; read(reports[0], &report, 1) == 1; ++saves) {
            items = Session(items, again, 200000).after;
        }
        close(reports[0]);
        const Session stopped(items, again, 200000);
        const qtString image = FileBytes(name);
        const Outcome outcome = Judge(image, stopped);
        ++counts[outcome];
        ASSERT_NE(outcome, lost) << "round " << round;
        items = outcome == opensAfter ? stopped.after : items;
        if (outcome != opensBefore && outcome != opensAfter) {
            WriteFile(name, Created(items));
        }
    }
    std::printf("%d kills, %ld saves: ", rounds, saves);
    Print(counts);
    EXPECT_EQ(counts[older], 0);
    EXPECT_GT(saves, 0);
}

}  // namespace
