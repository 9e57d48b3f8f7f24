#include "AbstractData/Parallel.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

uint32_t ThreadCount(uint32_t requested)
{
    if (requested > 0)
        return requested;
    return std::max(1u, std::thread::hardware_concurrency());
}

void ParallelFor(size_t count, uint32_t threads, const std::function<void(size_t)>& body)
{
    const size_t workers = std::min<size_t>(threads, count);
    if (workers <= 1) {
        for (size_t i = 0; i < count; ++i)
            body(i);
        return;
    }
    std::atomic<size_t> nextIndex{0};
    const auto work = [&] {
        for (size_t i = nextIndex++; i < count; i = nextIndex++)
            body(i);
    };
    std::vector<std::thread> helpers;
    helpers.reserve(workers - 1);
    for (size_t k = 1; k < workers; ++k)
        helpers.emplace_back(work);
    work();
    for (std::thread& helper : helpers)
        helper.join();
}
