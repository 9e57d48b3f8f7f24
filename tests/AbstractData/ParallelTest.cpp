// Shared work: every index is handed out exactly once, whatever the thread count, and one thread
// runs the indices in order on the caller.
#include "AbstractData/Parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

TEST(Parallel, EveryIndexRunsOnceOnAnyNumberOfThreads)
{
    EXPECT_GE(ThreadCount(0), 1u);
    EXPECT_EQ(ThreadCount(3), 3u);
    for (const uint32_t threads : {0u, 1u, 2u, 8u}) {
        for (const size_t count : {0u, 1u, 7u, 1000u}) {
            std::vector<std::atomic<int>> runs(count);
            ParallelFor(count, threads, [&](size_t i) { ++runs[i]; });
            for (size_t i = 0; i < count; ++i)
                EXPECT_EQ(runs[i].load(), 1) << threads << " threads, index " << i << " of " << count;
        }
    }
    std::vector<size_t> order;
    const auto caller = std::this_thread::get_id();
    ParallelFor(5, 1, [&](size_t i) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        order.push_back(i);
    });
    EXPECT_EQ(order, (std::vector<size_t>{0, 1, 2, 3, 4}));
}
