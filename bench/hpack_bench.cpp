// Packages beside other keyed stores, on the same items in the same run. See bench/README.md.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench/items.h"
#include "bench/stores.h"

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
}

template <class Store>
void ReadOne(benchmark::State& state, ItemSet itemSet) {
    const Items& items = itemSet();
    Store& store = Filled<Store>(itemSet);
    const std::string& key = items.all[items.randomOrder[0]].first;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.ReadOne(key));
    }
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
    add("replace_1000", Replace1000<Store>);
}

}  // namespace

int main(int argc, char** argv) {
    for (const NamedSet& items : {NamedSet{"files", FileItems}, NamedSet{"small", SmallItems}}) {
        Register<stores::Floor>(items);
        Register<stores::Package>(items);
        Register<stores::Memory>(items);
        Register<stores::Sqlite>(items);
        Register<stores::Lmdb>(items);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
