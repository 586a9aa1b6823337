#include "basekit/qtPtr.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/Counted.h"

namespace {

TEST(qtPtr, LastReferenceDeletes) {
    for (const bool singleThread : {true, false}) {
        qtPtrBase::m_CountAux::s_singleThread = singleThread;
        ExpectLastReferenceDeletes<qtPtr<Counted>>();
    }
}

TEST(qtPtr, ThreadsShareTheCount) {
    int alive = 0;
    {
        const qtPtr<Counted> shared(new Counted(alive));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([shared] {
                for (int i = 0; i < 10000; ++i) {
                    const qtPtr<Counted> copy(shared);
                    EXPECT_TRUE(copy);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

}  // namespace
