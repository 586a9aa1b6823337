#include "basekit/qtPtr.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

struct Counted {
    explicit Counted(int& counter) : alive(counter) { ++alive; }
    ~Counted() { --alive; }
    int& alive;
};

TEST(qtPtr, LastReferenceDeletes) {
    int alive = 0;
    for (const bool singleThread : {false, true}) {
        qtPtrBase::m_CountAux::s_singleThread = singleThread;
        qtPtr<Counted> first(new Counted(alive));
        qtPtr<Counted> second(first);
        first = qtPtr<Counted>();
        EXPECT_EQ(alive, 1);
        EXPECT_FALSE(first);
        second = *&second;
        EXPECT_EQ(alive, 1);
        second = qtPtr<Counted>(new Counted(alive));
        EXPECT_EQ(alive, 1);
        second = first;
        EXPECT_EQ(alive, 0);
    }
    qtPtrBase::m_CountAux::s_singleThread = false;
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
