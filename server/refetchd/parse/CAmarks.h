// Looks for marks of a page, such as "<", in 64 bytes at once.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

inline constexpr std::size_t kCAWindow = 64;

// One bit for each byte of a window, the lowest for the first byte.
using CAMarks = std::uint64_t;

// The place of the first mark. `marks` must not be 0.
inline std::size_t CAFirstMark(CAMarks marks)
{
    return static_cast<std::size_t>(std::countr_zero(marks));
}

// The marks from `place` on, which is less than kCAWindow.
inline CAMarks CAMarksFrom(CAMarks marks, std::size_t place)
{
    return marks & (~CAMarks{0} << place);
}

// The marks before `place`, which is less than kCAWindow.
inline CAMarks CAMarksBefore(CAMarks marks, std::size_t place)
{
    return marks & ~(~CAMarks{0} << place);
}

// Looks at the kCAWindow bytes at `at`, on any processor.
class CAPlainWindow {
public:
    // Where the byte `wanted` is.
    static CAMarks of(const char *at, char wanted)
    {
        return collect(at, [wanted](Word word) { return differing(word, wanted); });
    }
    // Where ">" and quotes are: the bytes that can end a tag or a value.
    static CAMarks ofEnds(const char *at)
    {
        return collect(at, [](Word word) {
            return differing(word, '>') & differing(word, '"') & differing(word, '\'');
        });
    }

private:
    using Word = std::uint64_t;
    static constexpr Word kOnes = 0x0101010101010101;  // 1 in each byte
    static constexpr Word kLow = 0x7F * kOnes;         // all bits but the highest of each byte

    // Sets the highest bit of each byte that is not `byte`. No sum carries into the next byte.
    static Word differing(Word word, char byte)
    {
        const Word difference = word ^ kOnes * static_cast<unsigned char>(byte);
        return ((difference & kLow) + kLow) | difference;
    }

    // The places of the bytes whose highest bits `step` does not set.
    template <typename Step>
    static CAMarks collect(const char *at, Step step)
    {
        CAMarks marks = 0;
        for (std::size_t i = kCAWindow; i > 0; i -= sizeof(Word)) {
            Word word = 0;
            std::memcpy(&word, at + i - sizeof(Word), sizeof(Word));
            marks = marks << sizeof(Word) | bitsOf(~step(word) & ~kLow);
        }
        return marks;
    }

    // Collects the highest bits of the bytes, that of the first byte in memory as the lowest bit.
    // The factor moves each of them to its place in the highest byte, and no two to the same place.
    static Word bitsOf(Word high)
    {
        constexpr bool kIsLittle = std::endian::native == std::endian::little;
        return (high >> 7U) * (kIsLittle ? 0x0102040810204080U : 0x8040201008040201U) >> 56U;
    }
};

#ifdef __SSE2__
// The same with SSE2, which every x86-64 processor has.
class CASse2Window {
public:
    static CAMarks of(const char *at, char wanted)
    {
        const __m128i pattern = _mm_set1_epi8(wanted);
        return collect(at, [pattern](__m128i part) { return _mm_cmpeq_epi8(part, pattern); });
    }
    static CAMarks ofEnds(const char *at)
    {
        return collect(at, [](__m128i part) {
            const __m128i quotes = _mm_or_si128(_mm_cmpeq_epi8(part, _mm_set1_epi8('"')),
                                                _mm_cmpeq_epi8(part, _mm_set1_epi8('\'')));
            return _mm_or_si128(quotes, _mm_cmpeq_epi8(part, _mm_set1_epi8('>')));
        });
    }

private:
    template <typename Step>
    static CAMarks collect(const char *at, Step step)
    {
        CAMarks marks = 0;
        for (std::size_t i = kCAWindow; i > 0; i -= sizeof(__m128i)) {
            const auto *const part = reinterpret_cast<const __m128i *>(at + i - sizeof(__m128i));
            const int bits = _mm_movemask_epi8(step(_mm_loadu_si128(part)));
            marks = marks << sizeof(__m128i) | static_cast<CAMarks>(bits);
        }
        return marks;
    }
};
using CAWindow = CASse2Window;
#else
using CAWindow = CAPlainWindow;
#endif
