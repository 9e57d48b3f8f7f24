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

#include <cstddef>
#include <cstdint>
#include <functional>

uint32_t ThreadCount(uint32_t requested);

void ParallelFor(size_t count, uint32_t threads, const std::function<void(size_t)>& body);
