#include "Parser/PlainLines.h"

#include "AbstractData/Parallel.h"

#include <algorithm>
#include <cstring>
#include <vector>

const char* FindFirst(const char* begin, const char* end, char character, uint32_t threads)
{
    // The first megabyte alone (most blocks end there), then windows of a few megabytes a thread:
    // the pages of a long block are first touched on all threads too.
    constexpr size_t kFirst = 1u << 20;
    constexpr size_t kWindow = 8u << 20;
    const auto find = [&](const char* from, size_t length) {
        return static_cast<const char*>(std::memchr(from, character, std::min(length, static_cast<size_t>(end - from))));
    };
    if (threads <= 1 || static_cast<size_t>(end - begin) <= kFirst)
        return find(begin, static_cast<size_t>(end - begin));
    if (const char* found = find(begin, kFirst))
        return found;
    std::vector<const char*> found(threads);
    for (const char* from = begin + kFirst; from < end; from += std::min(kWindow * threads, static_cast<size_t>(end - from))) {
        ParallelFor(threads, threads, [&](size_t i) {
            const size_t offset = kWindow * i;
            found[i] = offset < static_cast<size_t>(end - from) ? find(from + offset, kWindow) : nullptr;
        });
        for (const char* first : found) {
            if (first)
                return first;
        }
    }
    return nullptr;
}
