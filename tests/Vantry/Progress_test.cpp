#include "Vantry/Progress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include "basekit/process_assert.h"
#include "tests/support/Errors.h"

namespace {

std::vector<qtString> s_reports;

class ProgressTest : public testing::Test {
protected:
    ProgressTest() {
        s_reports.clear();
        SetAssertSink([](const char* expression, const char* file, int line, const char* function) {
            EXPECT_STREQ(file, "Vantry/Progress.cpp");
            EXPECT_GT(line, 0);
            s_reports.push_back(qtString(expression) + " in " + function);
        });
    }
    ~ProgressTest() override { SetAssertSink(nullptr); }

    void ExpectCounts(unsigned int numOfPhases, unsigned int phase, unsigned int range,
                      unsigned int steps, const char* name) const {
        using Counts =
            std::tuple<unsigned int, unsigned int, unsigned int, unsigned int, const char*, bool>;
        EXPECT_EQ(Counts(progress.numOfPhases, progress.phase, progress.progressRange,
                         progress.progress, progress.phaseName, progress.stopRequested),
                  Counts(numOfPhases, phase, range, steps, name, false));
    }

    Progress progress;
    const char* const label = "label";
};

TEST_F(ProgressTest, CountsAndReportsWhatIsOutOfRange) {
    ExpectCounts(0, 0, 0, 0, nullptr);
    progress.SetNumOfPhases(3, 100, label);
    ExpectCounts(3, 0, 100, 0, label);
    for (unsigned int phase = 1; phase <= 3; ++phase) {
        progress.SetProgress(7);
        progress.IncPhase(50 + phase, "next");
        EXPECT_EQ(progress.phase, phase);
    }
    for (unsigned int step = 1; step <= 53; ++step) {
        progress.IncProgress();
    }
    EXPECT_TRUE(s_reports.empty());

    progress.IncProgress();
    EXPECT_EQ(progress.progress, 54U);
    progress.SetProgress(0xFFFFFFFF);
    progress.IncPhase(0, label);
    ExpectCounts(3, 4, 0, 0, label);
    progress.SetProgress(0xFFFFFFFF);
    progress.SetPhase(9, 2, nullptr);
    ExpectCounts(3, 9, 2, 0, nullptr);
    const qtString step = "!progressRange || progress<=progressRange in void Progress::";
    const qtString phase = "!numOfPhases || phase<=numOfPhases in void Progress::";
    EXPECT_EQ(s_reports,
              (std::vector<qtString>{step + "IncProgress()", step + "SetProgress(unsigned int)",
                                     phase + "IncPhase(unsigned int, const char*)",
                                     phase + "SetPhase(unsigned int, unsigned int, const char*)"}));
    progress.SetNumOfPhases(0, 0, label);
    progress.SetPhase(1000, 0, label);
    EXPECT_EQ(s_reports.size(), 4U);
}

TEST_F(ProgressTest, OneRequestStopsOneUpdateThatChangesNothing) {
    void (*const updates[])(Progress&) = {
        [](Progress& p) { p.SetPhase(9, 9, "other"); }, [](Progress& p) { p.IncPhase(9, "other"); },
        [](Progress& p) { p.SetProgress(99); },         [](Progress& p) { p.IncProgress(); },
        [](Progress& p) { p.StopProgressOnRequest(); },
    };
    for (const auto update : updates) {
        progress.SetNumOfPhases(3, 100, label);
        progress.IncPhase(10, label);
        progress.SetProgress(5);
        progress.stopRequested = true;
        ExpectThrow<qtxProgressCancel>([&] { update(progress); }, "Progress", "", 10, 2,
                                       "Vantry/Progress.cpp");
        ExpectCounts(3, 1, 10, 5, label);
        EXPECT_NO_THROW(update(progress));
    }
    EXPECT_EQ(s_reports.size(), 2U);

    progress.SetProgress(5);
    progress.stopRequested = true;
    progress.SetProgressRange(4);
    ExpectCounts(3, 1, 4, 0, label);
    progress.stopRequested = true;
    progress.SetNumOfPhases(2, 10, label);
    ExpectCounts(2, 0, 10, 0, label);
}

// A constant initializer cannot run after a dynamic one and undo what that stored.
constexpr Progress constant;
static_assert(constant.numOfPhases == 0 && constant.phaseName == nullptr);

TEST_F(ProgressTest, MembersArePlainValues) {
    progress.SetNumOfPhases(3, 100, label);
    progress.SetPhase(2, 40, "two");
    progress.SetProgress(7);
    char line[32];
    std::snprintf(line, sizeof line, "%u of %u, %u of %u, %s", progress.phase, progress.numOfPhases,
                  progress.progress, progress.progressRange, progress.phaseName);
    EXPECT_STREQ(line, "2 of 3, 7 of 40, two");
    const unsigned int* const steps = &progress.progress;
    EXPECT_EQ(std::min(*steps, 5U), 5U);
    const Progress& seen = progress;
    EXPECT_EQ(std::tuple(seen.NumOfPhases(), seen.Phase(), seen.ProgressRange(), seen.Steps()),
              std::tuple(3U, 2U, 40U, 7U));
    EXPECT_STREQ(seen.PhaseName(), "two");
    Progress* const members = &progress;  // in the documented order
    EXPECT_TRUE(&members->numOfPhases < &members->phase &&
                &members->phase < &members->progressRange &&
                &members->progressRange < &members->progress);
    EXPECT_LT(static_cast<void*>(&members->stopRequested), static_cast<void*>(&members->phaseName));
}

// A reader looks at one member alone: others could order its accesses, and hide a data race.
TEST_F(ProgressTest, OtherThreadsReadAndStop) {
    bool (*const readers[])(const Progress&) = {
        [](const Progress& p) { return p.Phase() >= 3; },
        [](const Progress& p) { return p.Steps() > 0; },
        [](const Progress& p) { return p.ProgressRange() == 2000; },
        [](const Progress& p) { return p.NumOfPhases() == 7; },
        [](const Progress& p) { return qtString(p.PhaseName()) == "work"; },
    };
    progress.SetNumOfPhases(0, 0, label);
    std::atomic<std::size_t> waiting{std::size(readers)};
    std::atomic<bool> stopped{false};
    std::vector<std::thread> observers;
    for (const auto reader : readers) {
        observers.emplace_back([this, reader, &waiting, &stopped] {
            while (!reader(progress)) {
                std::this_thread::yield();
            }
            // Again and again: a new run discards a request.
            for (--waiting; !stopped; std::this_thread::yield()) {
                if (waiting == 0) {
                    progress.stopRequested = true;
                }
            }
        });
    }
    EXPECT_THROW(
        for (;;) {
            progress.SetNumOfPhases(7, 0, label);
            progress.SetPhase(3, 2000, "work");
            for (int step = 0; step < 1000; ++step) {
                progress.IncProgress();
            }
        },
        qtxProgressCancel);
    stopped = true;
    for (std::thread& observer : observers) {
        observer.join();
    }
}

}  // namespace
