// Small fixed pieces of work, whose cost scripts/guard counts: instructions within MeasuredWork(),
// system calls between the two marks, and allocations, which the program prints itself.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Vantry/CTProgress.h"
#include "Vantry/Progress.h"
#include "VexUnix/VexRegistryUnix.h"
#include "hpack/Hpack.h"
#include "lpstring/LpString.h"
#include "lpstring/LpStringHash.h"
#include "tests/support/Allocations.h"

// Its name is what the instruction counter is told to watch.
extern "C" [[gnu::noinline, gnu::visibility("default")]] void MeasuredWork(
    const std::function<void()>& work) {
    work();
}

namespace {

constexpr unsigned itemCount = 3000;

// The same on every machine, in no order.
qtString Key(unsigned number) {
    return "item/" + std::to_string(number * 2654435761U);
}

const qtString& Body(unsigned number) {
    static const qtString bodies[] = {qtString(100, 'a'), qtString(3000, 'b'), qtString()};
    return bodies[number % 3];
}

template <class Place>
void Create(Place& place) {
    Hpack package;
    package.Open(place, 'w');
    for (unsigned i = 0; i < itemCount; ++i) {
        package.AddOrUpdate(Key(i), Body(i));
    }
    package.Close();
}

template <class Place>
void ReadAll(Place& place) {
    Hpack package;
    package.Open(place, 'r');
    qtString body;
    for (unsigned i = 0; i < itemCount; ++i) {
        package.GetItem(Key(i * 7 % itemCount), body);
    }
}

void Replace(const qtString& file) {
    Hpack package;
    package.Open(file, 'u');
    for (unsigned i = 0; i < itemCount; i += 30) {
        package.AddOrUpdate(Key(i), Body(i));
    }
    package.Close();
}

std::size_t List(const qtString& file) {
    Hpack package;
    package.Open(file, 'r');
    std::vector<qtString> keys;
    package.GetIndex(keys);
    return keys.size();
}

qtString Text(std::size_t size) {
    qtString text;
    while (text.size() < size) {
        text += "some words, of a line;\tand then another\n";
    }
    return text;
}

void Tokenize(const qtString& text) {
    std::vector<LpCString> tokens;
    LpTokenize(LpCString(text), tokens);
    LpTokenize(LpCString(text), tokens, ' ');
    LpTokenize(LpCString(text), tokens, qtString(" ,;\t\n"));
}

void UpdateProgress() {
    Progress progress;
    progress.SetNumOfPhases(1, 10000, "work");
    CTProgress record;
    record.Init();
    for (int i = 0; i < 10000; ++i) {
        progress.IncProgress();
        record.Increment(1);
    }
}

char parameter[] = "Guard";
unsigned char value[] = "a value of 20 bytes.";

void SetParameter() {
    if (SetPopRegParam(parameter, 0, value, sizeof value - 1) != 0) {
        std::abort();
    }
}

void GetParameter() {
    unsigned char read[64];
    unsigned long length = sizeof read;
    if (GetPopRegParam(parameter, read, &length) != 0) {
        std::abort();
    }
}

// Files are made in the current folder.
std::map<std::string, std::function<void()>> Workloads() {
    static qtString file = "guard.hpk";
    static qtPtr<qtBuffer> memory(new qtBuffer);
    static const qtString bytes = Text(1 << 16);
    return {
        {"create", [] { Create(file); }},
        {"create_memory", [] { Create(memory); }},
        {"read_all", [] { ReadAll(file); }},
        {"read_all_memory", [] { ReadAll(memory); }},
        {"list", [] { List(file); }},
        {"replace", [] { Replace(file); }},
        {"hash", [] { LpStringHash::s_polyHash.Hash(bytes); }},
        {"tokenize", [] { Tokenize(bytes); }},
        {"registry_set", SetParameter},
        {"registry_get", GetParameter},
        {"progress", UpdateProgress},
    };
}

}  // namespace

// Without arguments it lists the workloads.
int main(int argc, char** argv) {
    const auto workloads = Workloads();
    if (argc != 2) {
        for (const auto& [name, work] : workloads) {
            std::puts(name.c_str());
        }
        return 0;
    }
    const std::string chosen = argv[1];
    // What the others need to be there.
    workloads.at("create")();
    workloads.at("create_memory")();
    workloads.at("registry_set")();
    const std::function<void()>& work = workloads.at(chosen);
    // Counts down with each allocation.
    constexpr long plenty = 1L << 30;
    Allocations::untilFailure = plenty;
    getppid();
    MeasuredWork(work);
    getppid();
    std::printf("%ld\n", plenty - Allocations::untilFailure);
    return 0;
}
