#include "hpack/HpackShards.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "hpack/Hpack.h"

// Writes the lines of standard input as items with empty bodies, each to the shard of its key.
static void Write(const qtString& set, unsigned int shardCount) {
    std::vector<std::unique_ptr<Hpack>> shards;
    for (unsigned int number = 0; number < shardCount; ++number) {
        shards.push_back(std::make_unique<Hpack>());
        shards.back()->Open(HpackShards::FileName(set, number, shardCount), 'w');
    }
    for (std::string key; std::getline(std::cin, key);) {
        shards[HpackShards::ShardOf(key, shardCount)]->AddAtOffset(key, qtString(), 0);
    }
    for (const auto& shard : shards) {
        shard->Close();
    }
}

static void Look(const qtString& set, const qtString& key) {
    const HpackShards shards(set);
    std::cout << shards.Count() << " items in " << shards.Shards().size() << " shards, " << key
              << (shards.Find(key) ? " among them\n" : " not among them\n");
}

int main(int argc, char** argv) {
    const qtString command(argc == 4 ? argv[1] : "");
    try {
        if (command == "write") {
            Write(argv[2], static_cast<unsigned int>(std::stoul(argv[3])));
        } else if (command == "look") {
            Look(argv[2], argv[3]);
        } else {
            std::cerr << "usage: shards write SET NUMBER <KEYS\n       shards look SET KEY\n";
            return 2;
        }
    } catch (const qtxAll& error) {
        std::cerr << error.ErrorString() << "\n";
        return 1;
    }
}
