#include "cpu/TokenEdges.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "cpu/CpuLevel.h"

namespace vantry_internal {
namespace {

TEST(TokenEdges, EveryKernelFindsTheTransitions) {
    const TokenEdges* const kernels[] = {
        &tokenEdgesGeneric,
#if defined(__x86_64__) || defined(__i386__)
        &tokenEdges128,
        &tokenEdges256,
        &tokenEdges512,
#endif
    };
    std::mt19937 random(8);
    for (int round = 0; round < 1500; ++round) {
        ByteSet separators;
        bool isSeparator[256] = {};
        for (std::size_t i = random() % 20; i > 0; --i) {
            const auto byte = static_cast<unsigned char>(random());
            separators.Add(static_cast<char>(byte));
            isSeparator[byte] = true;
        }
        // Half of the bytes are below `among`, so that runs of many lengths occur.
        const std::size_t among = 1 + random() % 255;
        std::vector<char> piece(random() % 300);
        for (char& byte : piece) {
            byte = static_cast<char>(random() % (random() % 2 == 0 ? among : 256));
        }
        const bool startsInToken = random() % 2 == 0;
        const auto offset = static_cast<std::uint32_t>(random());
        std::vector<std::uint32_t> expected;
        bool inToken = startsInToken;
        for (std::size_t i = 0; i < piece.size(); ++i) {
            if (inToken == isSeparator[static_cast<unsigned char>(piece[i])]) {
                inToken = !inToken;
                expected.push_back(offset + static_cast<std::uint32_t>(i));
            }
        }
        for (std::size_t level = 0; level <= static_cast<std::size_t>(GetProcessorLevel());
             ++level) {
            std::vector<std::uint32_t> edges(piece.size() + edgesSlack);
            bool now = startsInToken;
            edges.resize(kernels[level]->find(separators, piece.data(), piece.size(), offset, now,
                                              edges.data()));
            ASSERT_EQ(edges, expected) << "level " << level;
            ASSERT_EQ(now, inToken) << "level " << level;
            now = startsInToken;
            ASSERT_EQ(kernels[level]->count(separators, piece.data(), piece.size(), now),
                      expected.size());
            ASSERT_EQ(now, inToken) << "level " << level;
        }
    }
}

}  // namespace
}  // namespace vantry_internal
