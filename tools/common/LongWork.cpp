#include "tools/common/LongWork.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <future>
#include <vector>

#include "tools/common/Failures.h"
#include "tools/common/ProgressBar.h"

namespace vantry_tools {

namespace {

class WorkStopped {};

// Signals that stop the work, and the record that they reach. There is one such work at a time.
class StopSignals {
public:
    explicit StopSignals(CTProgress& progress) {
        caught = 0;
        running = &progress;
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction former;
            sigaction(signal, nullptr, &former);
            if (former.sa_handler == SIG_IGN) {  // whoever started the tool wants it so
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

}  // namespace

// The worker's side: whatever happens, the record says how the run ended.
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
        bar.Draw(data.status, data.current, data.total);
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

void StartPhase(CTProgress& progress, const char* status, std::size_t total) {
    progress.NextPhase(true);
    progress.SetStatus(status);
    progress.SetTotal(static_cast<int>(std::min<std::size_t>(total, INT_MAX)));
}

void StopIfInterrupted(const CTProgress& progress) {
    if (progress.IsInterrupted()) {
        throw WorkStopped();
    }
}

}  // namespace vantry_tools
