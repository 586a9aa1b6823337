// Runs a target without a fuzzer.
//
//   replay_TARGET ROUNDS FOLDER    over each file of FOLDER, and ROUNDS times over a changed one
#include <filesystem>
#include <random>

#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

static void Run(const qtString& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

int main(int /*argc*/, char** argv) {
    std::vector<qtString> files;
    for (const auto& entry : std::filesystem::directory_iterator(argv[2])) {
        files.push_back(FileBytes(entry.path().string()));
        Run(files.back());
    }
    std::sort(files.begin(), files.end());
    std::mt19937 random(1);
    for (int round = std::atoi(argv[1]); round > 0; --round) {
        qtString bytes = files[random() % files.size()];
        if (round % 2 == 0) {
            // All bytes at times; few of them make long tokens and runs of separators.
            const auto kinds = round % 3 == 0 ? 256 : 1 + random() % 8;
            const auto first = random();
            bytes.resize(random() % (round % 20 == 0 ? 9000 : 400));
            std::generate(bytes.begin(), bytes.end(),
                          [&] { return static_cast<char>(first + random() % kinds * 37); });
        } else if (round % 4 == 1 && bytes.size() >= 4) {
            for (auto changes = random() % 8; changes-- > 0;) {
                const auto byte = static_cast<char>(random() % 4 == 0 ? random() : 0);
                bytes[random() % bytes.size()] = byte;
            }
            bytes.resize(bytes.size() - random() % 4);
        }
        for (int numbers = round % 8 == 1 ? 0 : 40; numbers > 0; --numbers) {
            bytes += Word(random());
        }
        Run(bytes);
    }
    return 0;
}
