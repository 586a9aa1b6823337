// One update of each progress record in a tight loop, next to an atomic increment, relaxed and
// under a lock. An update that the header inlines, one called through the shared library.

#include <benchmark/benchmark.h>

#include <atomic>
#include <mutex>

#include "Vantry/CTProgress.h"
#include "Vantry/Progress.h"

namespace {

Progress s_progress;
CTProgress s_record;
std::atomic<int> s_atomic;
std::mutex s_mutex;
int s_locked;

void ProgressIncProgress(benchmark::State& state) {
    s_progress.SetNumOfPhases(0, 0, "bench");
    for (auto _ : state) {
        s_progress.IncProgress();
    }
}
BENCHMARK(ProgressIncProgress)->Name("progress/update/vantry");

void ProgressIncProgressInRange(benchmark::State& state) {
    s_progress.SetNumOfPhases(1, ~0U, "bench");
    for (auto _ : state) {
        s_progress.IncProgress();
    }
}
BENCHMARK(ProgressIncProgressInRange)->Name("progress/update/vantry_range");

void ProgressSetProgress(benchmark::State& state) {
    s_progress.SetNumOfPhases(1, ~0U, "bench");
    unsigned int steps = 0;
    for (auto _ : state) {
        s_progress.SetProgress(++steps);
    }
}
BENCHMARK(ProgressSetProgress)->Name("progress/update/vantry_set");

void ProgressIncPhaseThroughLibrary(benchmark::State& state) {
    s_progress.SetNumOfPhases(0, 0, "bench");
    for (auto _ : state) {
        s_progress.IncPhase(0, "bench");
    }
}
BENCHMARK(ProgressIncPhaseThroughLibrary)->Name("progress/update/vantry_called");

void RecordIncrement(benchmark::State& state) {
    s_record.Init();
    for (auto _ : state) {
        s_record.Increment(1);
    }
}
BENCHMARK(RecordIncrement)->Name("progress/update/vantry_record");

void RecordSetCurrentAndPoll(benchmark::State& state) {
    s_record.Init();
    int current = 0;
    for (auto _ : state) {
        s_record.SetCurrent(++current);
        if (s_record.IsInterrupted()) {
            state.SkipWithError("interrupted");
        }
    }
}
BENCHMARK(RecordSetCurrentAndPoll)->Name("progress/update/vantry_record_poll");

void RelaxedAtomicIncrement(benchmark::State& state) {
    for (auto _ : state) {
        s_atomic.fetch_add(1, std::memory_order_relaxed);
    }
}
BENCHMARK(RelaxedAtomicIncrement)->Name("progress/update/relaxed_atomic");

void LockedIncrement(benchmark::State& state) {
    for (auto _ : state) {
        const std::lock_guard<std::mutex> lock(s_mutex);
        benchmark::DoNotOptimize(++s_locked);
    }
}
BENCHMARK(LockedIncrement)->Name("progress/update/locked");

}  // namespace
