// Packages and other keyed stores, on the same items in the same run. See bench/README.md.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>
#include <string>
#include <type_traits>

#include "bench/items.h"
#include "bench/stores/BerkeleyDb.h"
#include "bench/stores/Cdb.h"
#include "bench/stores/Floor.h"
#include "bench/stores/Gdbm.h"
#include "bench/stores/Lmdb.h"
#include "bench/stores/MemoryFloor.h"
#include "bench/stores/Package.h"
#include "bench/stores/PlainFiles.h"
#include "bench/stores/Sqlite.h"

namespace {

using ItemSet = const Items& (*)();

template <class Store>
Store& Filled(ItemSet itemSet) {
    static std::unique_ptr<Store> store;
    static ItemSet filledWith = nullptr;
    if (filledWith != itemSet) {
        store = std::make_unique<Store>();
        store->Create(itemSet());
        filledWith = itemSet;
    }
    return *store;
}

template <class Store>
void Create(benchmark::State& state, ItemSet itemSet) {
    const Items& items = itemSet();
    Store store;
    for (auto _ : state) {
        store.Create(items);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(items.Bytes()));
    state.counters["disk_bytes"] = static_cast<double>(store.DiskBytes());
}

// A figure in kB from a line of the kernel's report on this process.
double StatusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    double kilobytes = 0;
    while (status >> word && word != name) {
    }
    status >> kilobytes;
    return kilobytes * 1024;
}

// The most memory that `work` holds at once, measured in a process of its own.
template <class Work>
double PeakBytes(const Work& work) {
    int ends[2];
    stores::Require(pipe(ends) == 0, "pipe");
    const pid_t child = fork();
    stores::Require(child >= 0, "fork");
    if (child == 0) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << 5;  // forgets the former peak
        const double before = StatusBytes("VmRSS:");
        work();
        const double peak = StatusBytes("VmHWM:") - before;
        _exit(write(ends[1], &peak, sizeof peak) == sizeof peak ? 0 : 1);
    }
    double peak = 0;
    stores::Require(read(ends[0], &peak, sizeof peak) == sizeof peak, "the child's report");
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return peak;
}

template <class Store>
void ReadOne(benchmark::State& state, ItemSet itemSet) {
    const Items& items = itemSet();
    Store& store = Filled<Store>(itemSet);
    const std::string& key = items.all[items.randomOrder[0]].first;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.ReadOne(key));
    }
    state.counters["peak_bytes"] = PeakBytes([&] { store.ReadOne(key); });
}

template <class Store>
void List(benchmark::State& state, ItemSet itemSet) {
    Store& store = Filled<Store>(itemSet);
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.List());
    }
}

template <class Store>
void ReadAll(benchmark::State& state, ItemSet itemSet) {
    const Items& items = itemSet();
    Store& store = Filled<Store>(itemSet);
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.ReadAll(items));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(items.Bytes()));
}

template <class Store>
void Replace1000(benchmark::State& state, ItemSet itemSet) {
    const Items& items = itemSet();
    Store& store = Filled<Store>(itemSet);
    for (auto _ : state) {
        store.Replace(items, std::min<std::size_t>(1000, items.all.size()));
    }
}

struct NamedSet {
    const char* name;
    ItemSet set;
};

template <class Store>
constexpr bool canReplace = !std::is_same_v<Store, stores::Cdb>;

template <class Store>
void Register(const NamedSet& items) {
    const auto add = [&](const char* work, void (*function)(benchmark::State&, ItemSet)) {
        benchmark::RegisterBenchmark(
            (std::string(items.name) + "/" + work + "/" + Store::name).c_str(), function, items.set)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    };
    add("create", Create<Store>);
    add("read_one", ReadOne<Store>);
    add("list", List<Store>);
    add("read_all", ReadAll<Store>);
    if constexpr (canReplace<Store>) {
        add("replace_1000", Replace1000<Store>);
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const NamedSet& items : {NamedSet{"files", FileItems}, NamedSet{"small", SmallItems},
                                  NamedSet{"large", LargeItems}}) {
        Register<stores::Floor>(items);
        Register<stores::Package>(items);
        Register<stores::MemoryFloor>(items);
        Register<stores::Memory>(items);
        Register<stores::Sqlite>(items);
        Register<stores::Lmdb>(items);
        Register<stores::BerkeleyDb>(items);
        Register<stores::Gdbm>(items);
        Register<stores::Cdb>(items);
        Register<stores::PlainFiles>(items);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
