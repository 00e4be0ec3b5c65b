// Looks for the bytes that can end a tag or a value, ">" and quotes, in 64 bytes at once.
#pragma once

#include "parse/CAmarks.h"

// Where ">" and quotes are, for any processor.
inline CAMarks CAEndMarks(const CAPlainWindow &window)
{
    return window.of('>') | window.of('"') | window.of('\'');
}

#ifdef __SSE2__
// Where they are in the kCAWindow bytes at `at`. Collects the bits of all three at once.
inline CAMarks CAEndMarks(const char *at)
{
    const auto ends = [at](std::size_t place) {
        const __m128i part = _mm_loadu_si128(reinterpret_cast<const __m128i *>(at + place));
        const __m128i quotes = _mm_or_si128(_mm_cmpeq_epi8(part, _mm_set1_epi8('"')),
                                            _mm_cmpeq_epi8(part, _mm_set1_epi8('\'')));
        const __m128i closes = _mm_cmpeq_epi8(part, _mm_set1_epi8('>'));
        return static_cast<CAMarks>(_mm_movemask_epi8(_mm_or_si128(quotes, closes)));
    };
    return ends(0) | ends(16) << 16U | ends(32) << 32U | ends(48) << 48U;
}
#else
inline CAMarks CAEndMarks(const char *at)
{
    return CAEndMarks(CAPlainWindow(at));
}
#endif
