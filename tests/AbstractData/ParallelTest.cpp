// Shared work: every index is handed out exactly once, whatever the thread count, and one thread
// runs the indices in order on the caller.
#include "AbstractData/Parallel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
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

TEST(OrderedWork, ItemsAreMadeOnceEachWithinTheWindowAndBeforeTheirWaitReturns)
{
    for (const uint32_t threads : {1u, 2u, 8u}) {
        constexpr size_t kCount = 300;
        constexpr uint64_t kWindow = 5;
        std::mutex mutex;
        std::vector<size_t> started;
        std::vector<std::atomic<int>> made(kCount);
        std::vector<bool> done(kCount, false), begun(kCount, false);
        uint64_t mostInFlight = 0;
        const auto caller = std::this_thread::get_id();
        bool allOnCaller = true;
        {
            OrderedWork work(kCount, threads, kWindow, [](size_t i) { return uint64_t{1 + i % 3}; }, [&](size_t i) {
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    started.push_back(i);
                    begun[i] = true;
                    uint64_t weight = 0;
                    for (size_t k = 0; k <= i; ++k)
                        weight += begun[k] && !done[k] ? 1 + k % 3 : 0;
                    mostInFlight = std::max(mostInFlight, weight);
                    allOnCaller = allOnCaller && std::this_thread::get_id() == caller;
                }
                ++made[i];
            });
            for (size_t i = 0; i < kCount; ++i) {
                EXPECT_TRUE(threads > 1 || made[i].load() == 0) << "made before it was waited for";
                work.Wait(i);
                EXPECT_EQ(made[i].load(), 1) << i;
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    done[i] = true;
                }
                work.Done(i);
            }
        }
        EXPECT_EQ(started.size(), kCount);
        // The item waited for may start beyond the window, by at most its own weight.
        EXPECT_LE(mostInFlight, kWindow + 3) << threads << " threads";
        EXPECT_TRUE(threads > 1 || allOnCaller) << "a thread was started";
    }
    // Items never waited for nor done: the helpers fill the window, then stop when the work ends.
    std::atomic<int> count{0};
    { OrderedWork work(1000, 4, 10, [](size_t) { return uint64_t{1}; }, [&](size_t) { ++count; }); }
    EXPECT_LE(count.load(), 10);
}
