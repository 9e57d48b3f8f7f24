#include "Parser/PlainLines.h"

#include "AbstractData/Parallel.h"

#include <algorithm>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

size_t CountLines(const char* begin, const char* end)
{
    size_t count = 0;
    const char* p = begin;
#if defined(__SSE2__)
    // Sixteen bytes a step: each byte lane counts its newlines, summed before a lane could wrap.
    const __m128i newline = _mm_set1_epi8('\n');
    while (end - p >= 16) {
        __m128i lanes = _mm_setzero_si128();
        const size_t steps = std::min<size_t>(static_cast<size_t>(end - p) / 16, 255);
        for (size_t i = 0; i < steps; ++i, p += 16)
            lanes = _mm_sub_epi8(lanes, _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), newline));
        const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
        count += static_cast<size_t>(_mm_cvtsi128_si64(sums)) +
                 static_cast<size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
    }
#endif
    for (; p != end; ++p)
        count += *p == '\n';
    return count;
}

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
