// LpTokenize and other ways to split a text into views: three kinds of separators, a large text
// and its lines cut to 200 bytes. VANTRY_CPU caps the kernels that the library selects.
#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/tokenizer.hpp>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "lpstring/LpString.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t textBytes = 10'000'000;
constexpr std::size_t lineBytes = 200;

// Files that everybody has, in the order of their paths.
const qtString& Text() {
    static const qtString text = [] {
        qtString joined;
        for (const char* const root : {"/usr/share/doc", "/usr/include"}) {
            std::vector<fs::path> files;
            std::error_code ignored;
            for (fs::recursive_directory_iterator at(root, ignored), end; at != end;
                 at.increment(ignored)) {
                if (at->is_regular_file(ignored) && at->path().extension() != ".gz") {
                    files.push_back(at->path());
                }
            }
            std::sort(files.begin(), files.end());
            const std::size_t limit = joined.size() + textBytes / 2;
            for (const fs::path& file : files) {
                std::ifstream in(file, std::ios::binary);
                const std::string content(std::istreambuf_iterator<char>(in), {});
                // Not text, and strtok_r would stop there.
                if (content.find('\0') == std::string::npos) {
                    joined += content;
                }
                if (joined.size() >= limit) {
                    break;
                }
            }
        }
        joined.resize(std::min(joined.size(), textBytes));
        return joined;
    }();
    return text;
}

// The same text, all at once or in short strings.
std::vector<std::string_view> Pieces(bool lines) {
    const std::string_view text = Text();
    std::vector<std::string_view> pieces;
    const std::size_t size = lines ? lineBytes : text.size();
    for (std::size_t at = 0; at < text.size(); at += size) {
        pieces.push_back(text.substr(at, size));
    }
    return pieces;
}

// Lines are few enough to stay in the cache, as those of a reader do.
template <class Split>
void Measure(benchmark::State& state, const Split& split) {
    std::vector<std::string_view> pieces = Pieces(state.range(0) != 0);
    pieces.resize(std::min<std::size_t>(pieces.size(), 1000));
    std::size_t bytes = 0;
    for (auto _ : state) {
        for (const std::string_view piece : pieces) {
            benchmark::DoNotOptimize(split(piece));
            bytes += piece.size();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

const qtString whiteSpace = " \t\n\v\f\r";
const qtString five = " \t\n,;";

// The vector is used again, as a loop over lines would.
template <class... Separators>
void Ours(benchmark::State& state, const Separators&... separators) {
    std::vector<LpCString> tokens;
    Measure(state, [&](std::string_view piece) {
        LpTokenize(LpCString(piece.data(), static_cast<std::uint32_t>(piece.size())), tokens,
                   separators...);
        return tokens.size();
    });
}

template <class... Separators>
void OursNewVector(benchmark::State& state, const Separators&... separators) {
    Measure(state, [&](std::string_view piece) {
        std::vector<LpCString> tokens;
        LpTokenize(LpCString(piece.data(), static_cast<std::uint32_t>(piece.size())), tokens,
                   separators...);
        return tokens.size();
    });
}

template <class Delimiter>
void Absl(benchmark::State& state, const Delimiter& delimiter) {
    Measure(state, [&](std::string_view piece) {
        const std::vector<absl::string_view> tokens = absl::StrSplit(
            absl::string_view(piece.data(), piece.size()), delimiter, absl::SkipEmpty());
        return tokens.size();
    });
}

// What one writes by hand: a table of the separators, and a loop.
void TableLoop(benchmark::State& state, const qtString& separators) {
    bool separates[256] = {};
    for (const char separator : separators) {
        separates[static_cast<unsigned char>(separator)] = true;
    }
    std::vector<std::string_view> tokens;
    Measure(state, [&](std::string_view piece) {
        tokens.clear();
        const char* const end = piece.data() + piece.size();
        for (const char* at = piece.data(); at != end;) {
            while (at != end && separates[static_cast<unsigned char>(*at)]) {
                ++at;
            }
            const char* const start = at;
            while (at != end && !separates[static_cast<unsigned char>(*at)]) {
                ++at;
            }
            if (at != start) {
                tokens.emplace_back(start, static_cast<std::size_t>(at - start));
            }
        }
        return tokens.size();
    });
}

// A token of boost::tokenizer that copies no characters.
struct BoostView {
    const char* begin;
    const char* end;
    void assign(const char* first, const char* last) {
        begin = first;
        end = last;
    }
};

void Boost(benchmark::State& state, const qtString& separators) {
    using Separator = boost::char_separator<char>;
    std::vector<BoostView> tokens;
    Measure(state, [&](std::string_view piece) {
        tokens.clear();
        const boost::tokenizer<Separator, const char*, BoostView> all(
            piece.data(), piece.data() + piece.size(), Separator(separators.c_str()));
        for (const BoostView& token : all) {
            tokens.push_back(token);
        }
        return tokens.size();
    });
}

// It writes into the text, so it gets a copy.
void StrtokR(benchmark::State& state, const qtString& separators) {
    std::vector<const char*> tokens;
    std::vector<char> copy(textBytes + 1);
    Measure(state, [&](std::string_view piece) {
        tokens.clear();
        std::memcpy(copy.data(), piece.data(), piece.size());
        copy[piece.size()] = '\0';
        char* rest = nullptr;
        for (const char* token = strtok_r(copy.data(), separators.c_str(), &rest); token != nullptr;
             token = strtok_r(nullptr, separators.c_str(), &rest)) {
            tokens.push_back(token);
        }
        return tokens.size();
    });
}

// The three kinds of separators for one splitter.
template <class WhiteSpace, class One, class Set>
void Register(const std::string& name, const WhiteSpace& whiteSpaces, const One& one,
              const Set& set) {
    const auto add = [&](const char* work, const auto& function) {
        for (const bool lines : {false, true}) {
            const std::string place = lines ? "lines/" : "text/";
            benchmark::RegisterBenchmark((place + work + '/' + name).c_str(), function)
                ->Arg(lines ? 1 : 0);
        }
    };
    add("white_space", whiteSpaces);
    add("one", one);
    add("set_of_five", set);
}

using State = benchmark::State;

}  // namespace

int main(int argc, char** argv) {
    Register(
        "vantry", [](State& state) { Ours(state); }, [](State& state) { Ours(state, ' '); },
        [](State& state) { Ours(state, five); });
    Register(
        "vantry_new_vector", [](State& state) { OursNewVector(state); },
        [](State& state) { OursNewVector(state, ' '); },
        [](State& state) { OursNewVector(state, five); });
    Register(
        "table_loop", [](State& state) { TableLoop(state, whiteSpace); },
        [](State& state) { TableLoop(state, " "); }, [](State& state) { TableLoop(state, five); });
    Register(
        "absl", [](State& state) { Absl(state, absl::ByAnyChar(whiteSpace)); },
        [](State& state) { Absl(state, ' '); },
        [](State& state) { Absl(state, absl::ByAnyChar(five)); });
    Register(
        "boost", [](State& state) { Boost(state, whiteSpace); },
        [](State& state) { Boost(state, " "); }, [](State& state) { Boost(state, five); });
    Register(
        "strtok_r", [](State& state) { StrtokR(state, whiteSpace); },
        [](State& state) { StrtokR(state, " "); }, [](State& state) { StrtokR(state, five); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
