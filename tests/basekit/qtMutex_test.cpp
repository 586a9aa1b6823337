#include "basekit/qtMutex.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace {

bool TryInAnotherThread(qtMutex& mutex) {
    bool taken = false;
    std::thread([&] {
        taken = mutex.try_lock();
        if (taken) {
            mutex.unlock();
        }
    }).join();
    return taken;
}

TEST(qtMutex, ExcludesOtherThreads) {
    for (const bool recursive : {false, true}) {
        qtMutex mutex(recursive);
        mutex.lock();
        EXPECT_FALSE(TryInAnotherThread(mutex));
        EXPECT_EQ(mutex.try_lock(), recursive);
        if (recursive) {
            mutex.unlock();
            EXPECT_FALSE(TryInAnotherThread(mutex)) << "taken twice, released once";
        }
        mutex.unlock();
        EXPECT_TRUE(TryInAnotherThread(mutex));

        long count = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int n = 0; n < 10000; ++n) {
                    const std::lock_guard<qtMutex> guard(mutex);
                    ++count;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(count, 40000);
    }
}

}  // namespace
