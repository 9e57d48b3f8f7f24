#include "AbstractData/Parallel.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
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

OrderedWork::OrderedWork(size_t count, uint32_t threads, uint64_t window, const std::function<uint64_t(size_t)>& weight,
                         std::function<void(size_t)> make)
    : make(std::move(make)), weights(count), states(count, State::Waiting), window(window)
{
    for (size_t i = 0; i < count; ++i)
        weights[i] = weight(i);
    const size_t helperCount = count > 1 ? std::min<size_t>(threads > 1 ? threads - 1 : 0, count - 1) : 0;
    helpers.reserve(helperCount);
    for (size_t k = 0; k < helperCount; ++k)
        helpers.emplace_back([this] { Help(); });
}

OrderedWork::~OrderedWork()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    changed.notify_all();
    for (std::thread& helper : helpers)
        helper.join();
}

bool OrderedWork::MayStart(size_t waited) const
{
    return next < states.size() && (next == waited || inFlight == 0 || inFlight + weights[next] <= window);
}

void OrderedWork::MakeNext(std::unique_lock<std::mutex>& lock)
{
    const size_t item = next++;
    states[item] = State::Started;
    inFlight += weights[item];
    lock.unlock();
    make(item);
    lock.lock();
    states[item] = State::Made;
    changed.notify_all();
}

void OrderedWork::Help()
{
    std::unique_lock<std::mutex> lock(mutex);
    while (!stopping && next < states.size()) {
        if (MayStart(SIZE_MAX))
            MakeNext(lock);
        else
            changed.wait(lock);
    }
}

void OrderedWork::Wait(size_t index)
{
    std::unique_lock<std::mutex> lock(mutex);
    while (states[index] != State::Made) {
        if (MayStart(index))
            MakeNext(lock);
        else
            changed.wait(lock);
    }
}

void OrderedWork::Done(size_t index)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        inFlight -= weights[index];
    }
    changed.notify_all();
}

TaskQueue::TaskQueue(uint32_t threads, size_t limit) : limit(limit)
{
    for (uint32_t k = 1; k < threads; ++k)
        helpers.emplace_back([this] { Help(); });
}

TaskQueue::~TaskQueue() { Finish(); }

bool TaskQueue::Post(std::function<void()> task)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (helpers.empty() || finishing || tasks.size() >= limit)
            return false;
        tasks.push_back(std::move(task));
    }
    posted.notify_one();
    return true;
}

void TaskQueue::Finish()
{
    std::unique_lock<std::mutex> lock(mutex);
    finishing = true;
    posted.notify_all();
    while (!tasks.empty()) {
        std::function<void()> task = std::move(tasks.front());
        tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
    lock.unlock();
    for (std::thread& helper : helpers)
        helper.join();
    helpers.clear();
}

void TaskQueue::Help()
{
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        posted.wait(lock, [&] { return finishing || !tasks.empty(); });
        if (tasks.empty())
            return;
        std::function<void()> task = std::move(tasks.front());
        tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}
