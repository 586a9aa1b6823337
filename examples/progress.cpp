// A worker and an observer share a progress record; Ctrl-C stops the work between two steps.
//
//     progress STEPS
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "Vantry/CTProgress.h"

static CTProgress progress;  // a signal handler has to find it

static bool RunPhase(const char* name, int steps) {
    progress.SetStatus(name);
    progress.SetTotal(steps);
    for (int step = 0; step < steps; ++step) {
        if (progress.IsInterrupted()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the work
        progress.Increment(1);
    }
    return true;
}

static void Work(int steps) {
    bool done = RunPhase("sorting", steps);
    if (done) {
        progress.NextPhase(true);
        done = RunPhase("packing", steps);
    }
    progress.EndRun(done);
}

// Text and amounts stem from one copy of the record, so they belong together.
static void Draw() {
    CTProgress::ProgressData data;
    progress.GetPhaseData(0, data);
    const int done = data.total > 0 ? static_cast<int>(30LL * data.current / data.total) : 0;
    const std::string bar(static_cast<std::size_t>(done), '#');
    std::fprintf(stderr, "\r%s (%d of %d)  [%-30s]", data.status, progress.GetCurrentPhaseNum(),
                 progress.GetTotalPhaseCount(), bar.c_str());
}

int main(int argc, char** argv) {
    const int steps = argc == 2 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 1000;
    progress.SetTotalPhaseCount(2);
    std::signal(SIGINT, [](int) { progress.SetInterrupt(); });
    std::thread worker(Work, steps);
    while (progress.IsRunning()) {
        Draw();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    worker.join();
    std::fputs("\r\033[K", stderr);
    // After IsRunning() returned false, the outcome is set.
    std::puts(progress.GetFinishState() ? "done" : "stopped");
    return progress.GetFinishState() ? 0 : 1;
}
