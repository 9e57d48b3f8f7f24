// Work shared by a few threads, for the parts of a conversion that are independent of each other.
//
// - ThreadCount turns a requested count into the number to use: 0 asks for one per core.
// - ParallelFor runs body(i) for every i in [0, count) on at most `threads` threads, the calling
//   thread among them, handing out indices in increasing order; it returns when every call has
//   returned. With `threads` <= 1 or count <= 1 everything runs on the calling thread, in order.
//   The body must not throw; calls for different i run at the same time and must not share
//   unsynchronised state. Threads are started per call: use it for pieces of work well above a
//   few tens of microseconds.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

uint32_t ThreadCount(uint32_t requested);

void ParallelFor(size_t count, uint32_t threads, const std::function<void(size_t)>& body);

// Items made ahead of a caller that takes them in order (the nodes of a tree built on helper
// threads and written in tree order, for example).
//
// - make(i) runs once for each i in [0, count), on one of at most `threads` - 1 helper threads or
//   on the caller's thread; items start in increasing order.
// - The caller takes the items in increasing order: Wait(i) returns once make(i) has returned,
//   making the next items itself meanwhile (item i first, when nobody has started it); Done(i),
//   in any order, says that item i is no longer needed.
// - Items are started ahead only while the items started and not done weigh `window` or less
//   together (weight(i), asked once per item at construction), or when none is; the item waited
//   for starts whatever it weighs. This bounds the memory that items made ahead hold.
// - The destructor lets the helpers finish the items they hold and joins them; items never waited
//   for may or may not have been made.
// - With `threads` <= 1 no thread is started: Wait(i) makes item i on the caller's thread.
// make must not throw; items made at the same time must not share unsynchronised state.
class OrderedWork {
public:
    OrderedWork(size_t count, uint32_t threads, uint64_t window, const std::function<uint64_t(size_t)>& weight,
                std::function<void(size_t)> make);
    ~OrderedWork();
    OrderedWork(const OrderedWork&) = delete;
    OrderedWork& operator=(const OrderedWork&) = delete;

    void Wait(size_t index);
    void Done(size_t index);

private:
    enum class State : uint8_t { Waiting, Started, Made };
    bool MayStart(size_t waited) const;  // whether item `next` may start now (the lock held)
    void Help();             // a helper thread's loop
    void MakeNext(std::unique_lock<std::mutex>& lock);  // starts item `next` (the lock held, released meanwhile)

    std::function<void(size_t)> make;
    std::vector<uint64_t> weights;
    std::vector<State> states;
    uint64_t window;
    uint64_t inFlight = 0;  // the weight of the items started and not done
    size_t next = 0;        // the first item not started
    bool stopping = false;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::thread> helpers;
};

// Tasks run by helper threads as they come: work that can start while the caller goes on (objects
// built while a file is still being read, for example).
// - Post(task) queues a task for one of `threads` - 1 helpers and answers true; it answers false
//   and queues nothing when `limit` tasks already wait, or without helpers (`threads` <= 1: no
//   thread is ever started).
// - Finish() runs the tasks still waiting (the caller takes part), waits for all and joins the
//   helpers: every task posted has run, and its results are the caller's to read. The
//   destructor finishes too.
// Tasks must not throw; tasks running at the same time must not share unsynchronised state.
class TaskQueue {
public:
    TaskQueue(uint32_t threads, size_t limit);
    ~TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    bool Post(std::function<void()> task);
    void Finish();

private:
    void Help();

    size_t limit;
    bool finishing = false;
    std::deque<std::function<void()>> tasks;
    std::mutex mutex;
    std::condition_variable posted;
    std::vector<std::thread> helpers;
};
