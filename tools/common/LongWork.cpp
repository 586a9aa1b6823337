#include "tools/common/LongWork.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <future>
#include <mutex>
#include <utility>
#include <vector>

#include "tools/common/Failures.h"
#include "tools/common/ProgressBar.h"

namespace vantry_tools {

namespace {

class WorkStopped {};

// Signals that stop the work, and the record that they reach. Only one work runs at a time.
class StopSignals {
public:
    explicit StopSignals(CTProgress& progress) {
        caught = 0;
        running = &progress;
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction former;
            sigaction(signal, nullptr, &former);
            if (former.sa_handler == SIG_IGN) {  // as under nohup
                continue;
            }
            struct sigaction action = {};
            action.sa_handler = &OnSignal;
            action.sa_flags = SA_RESTART;
            sigaction(signal, &action, nullptr);
            replaced.push_back({signal, former});
        }
    }
    ~StopSignals() {
        for (const Former& former : replaced) {
            sigaction(former.signal, &former.action, nullptr);
        }
        running = nullptr;
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    static int Caught() { return caught; }

private:
    struct Former {
        int signal;
        struct sigaction action;
    };

    static void OnSignal(int signal) {
        caught = signal;
        if (CTProgress* const progress = running; progress != nullptr) {
            progress->SetInterrupt();
        }
    }

    static std::atomic<CTProgress*> running;
    static std::atomic<int> caught;
    std::vector<Former> replaced;
};

std::atomic<CTProgress*> StopSignals::running;
std::atomic<int> StopSignals::caught;

// Lines that the worker wants to be shown. Only the observer knows where the bar is.
class Notes {
public:
    void Add(const std::string& line) {
        const std::lock_guard<std::mutex> guard(mutex);
        lines.push_back(line);
    }
    std::vector<std::string> Take() {
        const std::lock_guard<std::mutex> guard(mutex);
        return std::exchange(lines, {});
    }

private:
    std::mutex mutex;
    std::vector<std::string> lines;
};

}  // namespace

static Notes notes;
static std::atomic<Unit> unit{Unit::items};

// Whatever happens, the record shows how the run has ended.
static void Work(CTProgress& progress, const std::function<void(CTProgress&)>& work) {
    try {
        work(progress);
    } catch (...) {
        progress.EndRun(false);
        throw;
    }
    progress.EndRun(true);
}

static void Observe(const CTProgress& progress, const std::future<void>& worker, bool quiet) {
    constexpr std::chrono::milliseconds interval(100);
    ProgressBar bar(quiet);
    while (worker.wait_for(interval) != std::future_status::ready) {
        CTProgress::ProgressData data;
        progress.GetPhaseData(0, data);
        for (const std::string& line : notes.Take()) {
            if (!quiet) {
                bar.Clear();
                PrintError(line);
            }
        }
        bar.Draw(data.status, data.current, data.total, unit == Unit::bytes);
    }
}

void RunLongWork(bool quiet, const std::function<void(CTProgress&)>& work) {
    CTProgress progress;
    const StopSignals signals(progress);
    std::future<void> worker =
        std::async(std::launch::async, [&progress, &work] { Work(progress, work); });
    Observe(progress, worker, quiet);
    try {
        worker.get();
    } catch (const WorkStopped&) {
        throw Interrupted{StopSignals::Caught()};
    }
}

void StartPhase(CTProgress& progress, const char* status, std::uint64_t total, Unit counted) {
    progress.NextPhase(true);
    unit = counted;
    progress.SetStatus(status);
    progress.SetTotal(static_cast<int>(std::min<std::uint64_t>(total, INT_MAX)));
}

void Advance(CTProgress& progress, std::uint64_t amount) {
    const auto room = static_cast<unsigned int>(INT_MAX - progress.GetCurrent());
    progress.Increment(static_cast<unsigned int>(std::min<std::uint64_t>(amount, room)));
}

void StopIfInterrupted(const CTProgress& progress) {
    if (progress.IsInterrupted()) {
        throw WorkStopped();
    }
}

LockWait WaitFor(const CTProgress& progress) {
    LockWait wait;
    wait.report = [](const std::string& line) { notes.Add(line); };
    wait.poll = [&progress] { StopIfInterrupted(progress); };
    return wait;
}

}  // namespace vantry_tools
