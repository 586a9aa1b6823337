#include "Vantry/CTProgress.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

void ExpectPhase(const CTProgress& progress, unsigned int phaseNum, const std::string& status,
                 int total, int current, bool finishState, bool running, bool interrupted) {
    CTProgress::ProgressData data{"#", -1, -1, !finishState, !running, !interrupted};
    progress.GetPhaseData(phaseNum, data);
    EXPECT_EQ(std::tuple(std::string(data.status), data.total, data.current, data.finishState,
                         data.running, data.interrupted),
              std::tuple(status, total, current, finishState, running, interrupted))
        << phaseNum;
}

void ExpectNumbers(const CTProgress& progress, int finished, int total) {
    EXPECT_EQ(progress.GetFinishedPhaseCount(), finished);
    EXPECT_EQ(progress.GetCurrentPhaseNum(), finished + 1);
    EXPECT_EQ(progress.GetTotalPhaseCount(), total);
    EXPECT_EQ(progress.LastPhaseIsFinished(), finished >= total);
}

TEST(CTProgress, KeepsEveryPhaseOfARun) {
    CTProgress progress;
    ExpectNumbers(progress, 0, 1);
    ExpectPhase(progress, 0, "", 0, 0, false, true, false);
    progress.SetTotalPhaseCount(3);
    progress.SetStatus("one");
    progress.SetTotal(50);
    progress.SetCurrent(20);
    progress.Increment(5);
    progress.NextPhase(true);
    EXPECT_EQ(progress.GetTotal() + progress.GetCurrent(), 0);
    progress.SetInterrupt();
    progress.EndRun(true);
    progress.EndRun(false);
    EXPECT_FALSE(progress.IsRunning() || progress.GetFinishState());
    progress.NextPhase(true);
    EXPECT_TRUE(progress.IsRunning() && progress.IsInterrupted());
    progress.SetStatus("three");
    progress.SetCurrent(INT_MAX);
    progress.Increment(0xFFFFFFFF);
    progress.Increment(3);
    EXPECT_EQ(progress.GetCurrent(), INT_MIN + 1);

    CTProgress assigned;
    assigned.NextPhase(false);
    assigned = progress;
    assigned = *&assigned;
    const CTProgress copy(progress);
    progress.Init();
    ExpectNumbers(progress, 0, 1);
    ExpectPhase(progress, 1, "", 0, 0, false, true, false);
    for (const CTProgress* const kept : {&copy, &std::as_const(assigned)}) {
        ExpectNumbers(*kept, 2, 3);
        ExpectPhase(*kept, 1, "one", 50, 25, true, false, false);
        ExpectPhase(*kept, 2, "", 0, 0, false, false, true);
        for (const unsigned int running : {0U, 3U, 0xFFFFFFFFU}) {
            ExpectPhase(*kept, running, "three", 0, INT_MIN + 1, false, true, true);
        }
    }
    assigned.NextPhase(true);
    EXPECT_TRUE(assigned.LastPhaseIsFinished());
}

TEST(CTProgress, CutsTheStatusAndEndsIt) {
    CTProgress progress;
    for (const std::size_t length : {300U, 256U, 255U, 254U, 3U, 0U}) {
        const std::string text(length, 'x');
        progress.SetStatus(text.c_str());
        char buffer[257];
        std::memset(buffer, '#', sizeof buffer);
        progress.GetStatus(buffer);
        EXPECT_EQ(buffer, text.substr(0, 255));
        EXPECT_EQ(buffer[256], '#');
        CTProgress::ProgressData data;
        progress.GetPhaseData(0, data);
        std::string whole = text.substr(0, 255);
        whole.resize(256);
        EXPECT_EQ(std::string(data.status, 256), whole);
    }
}

// Calls every getter while setters run; the thread sanitizer reports data races.
TEST(CTProgress, ObserverReadsAndStopsTheRunningWorker) {
    CTProgress progress;
    // One looks at one value alone: others could order the accesses, and hide a data race.
    int (*const getters[])(const CTProgress&) = {
        [](const CTProgress& p) { return p.GetTotalPhaseCount(); },
        [](const CTProgress& p) { return int{p.GetFinishState()}; },
        [](const CTProgress& p) { return p.GetTotal(); },
    };
    std::vector<std::thread> observers;
    for (const auto getter : getters) {
        observers.emplace_back([&progress, getter] {
            while (!progress.IsInterrupted()) {
                EXPECT_GE(getter(progress), 0);
            }
        });
    }
    observers.emplace_back([&progress] {
        int seen = 0;
        while (progress.IsRunning()) {
            const int finished = progress.GetFinishedPhaseCount();
            EXPECT_GE(finished, seen);
            seen = finished;
            EXPECT_GT(progress.GetCurrentPhaseNum(), seen);
            EXPECT_LE(progress.GetCurrent() + progress.GetTotal(), 200);
            char status[256];
            progress.GetStatus(status);
            EXPECT_LE(std::strlen(status), 1U);
            CTProgress::ProgressData data;
            progress.GetPhaseData(0, data);
            EXPECT_TRUE(data.running || data.finishState);
            if (seen > 0 && !progress.IsInterrupted()) {
                ExpectPhase(progress, static_cast<unsigned int>(seen), "x", 100, 100, seen % 2 == 0,
                            false, false);
            }
            if (seen >= 200 && progress.GetTotalPhaseCount() >= 200) {
                progress.SetInterrupt();
            }
        }
        EXPECT_TRUE(progress.GetFinishState());
    });
    for (int phase = 1; !progress.IsInterrupted(); ++phase) {
        progress.SetTotalPhaseCount(phase);
        progress.SetTotal(100);
        progress.SetStatus("x");
        for (int step = 0; step < 50; ++step) {
            progress.Increment(1);
        }
        progress.SetCurrent(100);
        progress.NextPhase(phase % 2 == 0);
    }
    progress.EndRun(true);
    for (std::thread& observer : observers) {
        observer.join();
    }
}

// A record across two pages, one of which cannot be read: the first access to that page finds that
// the worker has just ended the phase.
class TornRecord {
public:
    // The second page starts `split` bytes into the record; `guarded` is 0 or 1.
    TornRecord(std::size_t split, std::size_t guarded) {
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        pages = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(pages, MAP_FAILED);
        pageBytes = page;
        record = new (static_cast<char*>(pages) + page - split) CTProgress;
        struct sigaction action = {};
        action.sa_handler = [](int) { EndPhase(); };
        sigaction(SIGSEGV, &action, &former);
        mprotect(static_cast<char*>(pages) + guarded * page, page, PROT_NONE);
    }
    ~TornRecord() {
        EndPhase();
        sigaction(SIGSEGV, &former, nullptr);
        record->~CTProgress();
        munmap(pages, 2 * pageBytes);
    }
    TornRecord(const TornRecord&) = delete;
    TornRecord& operator=(const TornRecord&) = delete;

    static CTProgress* record;

private:
    static void EndPhase() {
        mprotect(pages, 2 * pageBytes, PROT_READ | PROT_WRITE);
        record->SetTotal(3);
        record->SetCurrent(3);
        record->EndRun(true);
    }

    static void* pages;
    static std::size_t pageBytes;
    struct sigaction former = {};
};
CTProgress* TornRecord::record;
void* TornRecord::pages;
std::size_t TornRecord::pageBytes;

TEST(CTProgress, AnEndedPhaseIsSeenWithItsFinalAmounts) {
    int ended = 0;
    for (std::size_t split = alignof(CTProgress); split < sizeof(CTProgress);
         split += alignof(CTProgress)) {
        for (const std::size_t guarded : {0U, 1U}) {
            const TornRecord torn(split, guarded);
            CTProgress::ProgressData data;
            TornRecord::record->GetPhaseData(0, data);
            EXPECT_TRUE(data.running || (data.finishState && data.total == 3 && data.current == 3))
                << split << ' ' << guarded;
            ended += data.running ? 0 : 1;
        }
    }
    EXPECT_GT(ended, 0);
}

TEST(CTProgress, NoInterruptIsLostWhilePhasesChange) {
    CTProgress progress;
    std::atomic<int> round{0};
    std::atomic<int> interrupted{0};
    constexpr int rounds = 2000;
    std::thread observer([&] {
        for (int mine = 1; mine <= rounds; ++mine) {
            while (round < mine) {
                std::this_thread::yield();
            }
            progress.SetInterrupt();
            interrupted = mine;
        }
    });
    int lost = 0;
    for (int mine = 1; mine <= rounds; ++mine) {
        progress.Init();
        round = mine;
        while (interrupted < mine) {
            progress.NextPhase(true);
            if (progress.GetFinishedPhaseCount() % 64 == 0) {
                std::this_thread::yield();
            }
        }
        lost += progress.IsInterrupted() ? 0 : 1;
        progress.NextPhase(true);
        lost += progress.IsInterrupted() ? 0 : 1;
    }
    observer.join();
    EXPECT_EQ(lost, 0);
}

}  // namespace
