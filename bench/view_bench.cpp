// A mapped package and other mapped stores: bodies are read where they lie. See bench/README.md.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "bench/items.h"
#include "bench/stores/Cdb.h"
#include "bench/stores/Floor.h"
#include "bench/stores/Lmdb.h"
#include "bench/stores/MappedFloor.h"
#include "bench/stores/Package.h"
#include "bench/stores/Sqlite.h"
#include "bench/stores/View.h"

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

// The sum of all bytes, eight at a time.
std::uint64_t Touch(std::string_view bytes) {
    std::uint64_t sum = 0;
    std::size_t at = 0;
    for (; bytes.size() - at >= sizeof sum; at += sizeof sum) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + at, sizeof word);
        sum += word;
    }
    for (; at < bytes.size(); ++at) {
        sum += static_cast<unsigned char>(bytes[at]);
    }
    return sum;
}

// All keys in random order, one after the other in memory: finding the next key to ask for is to
// take no time.
const std::vector<std::string>& ShuffledKeys(ItemSet itemSet) {
    static std::map<ItemSet, std::vector<std::string>> shuffled;
    std::vector<std::string>& keys = shuffled[itemSet];
    if (keys.empty()) {
        const Items& items = itemSet();
        keys.reserve(items.all.size());
        for (const std::size_t i : items.randomOrder) {
            keys.push_back(items.all[i].first);
        }
    }
    return keys;
}

template <class Session>
void ReadEach(Session& session, const std::vector<std::string>& keys) {
    std::uint64_t sum = 0;
    for (const std::string& key : keys) {
        sum += Touch(session.Get(key));
    }
    benchmark::DoNotOptimize(sum);
}

template <class Store>
void Open(benchmark::State& state, ItemSet itemSet) {
    Store& store = Filled<Store>(itemSet);
    for (auto _ : state) {
        const typename Store::Opened opened(store);
        typename Store::Session session(opened);
        benchmark::DoNotOptimize(&session);
    }
}

void OpenFloor(benchmark::State& state, ItemSet itemSet) {
    stores::Floor& floor = Filled<stores::Floor>(itemSet);
    for (auto _ : state) {
        benchmark::DoNotOptimize(floor.Open());
    }
}

void OpenPackage(benchmark::State& state, ItemSet itemSet) {
    const stores::View& store = Filled<stores::View>(itemSet);
    for (auto _ : state) {
        Hpack package;
        package.Open(store.Where(), 'r');
        benchmark::DoNotOptimize(&package);
    }
}

// Opens the store, too.
template <class Store>
void ReadAll(benchmark::State& state, ItemSet itemSet) {
    const std::vector<std::string>& keys = ShuffledKeys(itemSet);
    Store& store = Filled<Store>(itemSet);
    for (auto _ : state) {
        const typename Store::Opened opened(store);
        typename Store::Session session(opened);
        ReadEach(session, keys);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(itemSet().Bytes()));
}

// Opens the store, and copies each key, as hpack_bench does.
template <class Store>
void List(benchmark::State& state, ItemSet itemSet) {
    Store& store = Filled<Store>(itemSet);
    for (auto _ : state) {
        const typename Store::Opened opened(store);
        typename Store::Session session(opened);
        std::vector<std::string> keys;
        session.ForEach("", [&](std::string_view key) { keys.emplace_back(key); });
        benchmark::DoNotOptimize(keys.data());
    }
}

void ListFloor(benchmark::State& state, ItemSet itemSet) {
    stores::Floor& floor = Filled<stores::Floor>(itemSet);
    for (auto _ : state) {
        benchmark::DoNotOptimize(floor.List());
    }
}

// In a store that is open and has been read.
template <class Store>
void Prefix(benchmark::State& state, ItemSet itemSet) {
    const typename Store::Opened opened(Filled<Store>(itemSet));
    typename Store::Session session(opened);
    ReadEach(session, ShuffledKeys(itemSet));
    std::minstd_rand random(4);
    std::size_t seen = 0;
    std::size_t wanted = 0;
    for (auto _ : state) {
        const std::string prefix = Group(static_cast<unsigned int>(random() % 1000));
        std::uint64_t sum = 0;
        session.ForEach(prefix, [&](std::string_view key) {
            sum += Touch(key);
            ++seen;
        });
        wanted += 1000;
        benchmark::DoNotOptimize(sum);
    }
    stores::Require(seen == wanted, "a thousand keys have the prefix");
}

// Each thread reads everything, in a store that is open and has been read. The ratio of one thread
// to two is what the second one costs: 1 is ideal.
template <class Store, unsigned int threadCount>
void Threads(benchmark::State& state, ItemSet itemSet) {
    const std::vector<std::string>& keys = ShuffledKeys(itemSet);
    const typename Store::Opened opened(Filled<Store>(itemSet));
    const auto read = [&] {
        typename Store::Session session(opened);
        ReadEach(session, keys);
    };
    read();
    for (auto _ : state) {
        std::vector<std::thread> others;
        for (unsigned int other = 1; other < threadCount; ++other) {
            others.emplace_back(read);
        }
        read();
        for (std::thread& other : others) {
            other.join();
        }
    }
}

void Register(const std::string& set, const char* work, const char* contender,
              void (*function)(benchmark::State&, ItemSet), ItemSet itemSet,
              benchmark::TimeUnit unit = benchmark::kMillisecond) {
    benchmark::RegisterBenchmark((set + '/' + work + '/' + contender).c_str(), function, itemSet)
        ->Unit(unit)
        ->UseRealTime();
}

template <class Store>
constexpr bool isOrdered = !std::is_same_v<Store, stores::Cdb>;

template <class Store>
void RegisterStore(const std::string& set, ItemSet itemSet) {
    if constexpr (!std::is_same_v<Store, stores::MappedFloor>) {
        Register(set, "open", Store::name, Open<Store>, itemSet);
    }
    Register(set, "read_all", Store::name, ReadAll<Store>, itemSet);
    if constexpr (isOrdered<Store>) {
        Register(set, "list", Store::name, List<Store>, itemSet);
    }
    Register(set, "threads_1", Store::name, Threads<Store, 1>, itemSet);
    Register(set, "threads_2", Store::name, Threads<Store, 2>, itemSet);
}

template <class... Stores>
void RegisterAll(const std::string& set, ItemSet itemSet) {
    Register(set, "open", "floor", OpenFloor, itemSet);
    Register(set, "open", "hpack", OpenPackage, itemSet);
    Register(set, "list", "floor", ListFloor, itemSet);
    (RegisterStore<Stores>(set, itemSet), ...);
}

template <class... Stores>
void RegisterPrefix(const std::string& set) {
    (Register(set, "prefix_1000", Stores::name, Prefix<Stores>, GroupedItems,
              benchmark::kMicrosecond),
     ...);
}

}  // namespace

int main(int argc, char** argv) {
    using namespace stores;
    RegisterAll<View, MappedFloor, Lmdb, Cdb, Sqlite>("mapped_small", SmallItems);
    RegisterAll<View, MappedFloor, Lmdb, Cdb, Sqlite>("mapped_files", FileItems);
    RegisterPrefix<View, MappedFloor, Lmdb, Sqlite>("mapped_prefix");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
