// Looks for marks of a page, such as "<", in 64 bytes at once.
#pragma once

#include <array>
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

// The place of the last mark. `marks` must not be 0.
inline std::size_t CALastMark(CAMarks marks)
{
    return kCAWindow - 1 - static_cast<std::size_t>(std::countl_zero(marks));
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

// The marks that come after the last one of `others`.
inline CAMarks CAMarksBehind(CAMarks marks, CAMarks others)
{
    return others == 0 ? marks
                       : marks & ~(~CAMarks{0} >> static_cast<unsigned>(std::countl_zero(others)));
}

// A window onto the kCAWindow bytes at `at`, for any processor.
class CAPlainWindow {
public:
    explicit CAPlainWindow(const char *at) { std::memcpy(words_.data(), at, kCAWindow); }

    // Where the byte `wanted` is.
    [[nodiscard]] CAMarks of(char wanted) const
    {
        const Word pattern = kOnes * static_cast<unsigned char>(wanted);
        return collect([pattern](Word word) { return atLeast(1, word ^ pattern); });
    }

    // Where bytes from 0 to `last` are, which is less than 0x80.
    [[nodiscard]] CAMarks upTo(char last) const
    {
        return collect([last](Word word) { return atLeast(last + 1, word); });
    }

private:
    using Word = std::uint64_t;
    static constexpr Word kOnes = 0x0101010101010101;  // 1 in each byte
    static constexpr Word kLow = 0x7F * kOnes;         // all bits but the highest of each byte

    // Sets the highest bit of each byte that is at least `least`, 1 to 0x80. No sum carries into
    // the next byte.
    static Word atLeast(int least, Word word)
    {
        return ((word & kLow) + kOnes * static_cast<Word>(0x80 - least)) | word;
    }

    // The places of the bytes whose highest bits `step` does not set.
    template <typename Step>
    CAMarks collect(Step step) const
    {
        CAMarks marks = 0;
        for (std::size_t i = words_.size(); i-- > 0;) {
            marks = marks << sizeof(Word) | bitsOf(~step(words_[i]) & ~kLow);
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

    std::array<Word, kCAWindow / sizeof(Word)> words_{};
};

#ifdef __SSE2__
// The same with SSE2, which every x86-64 processor has.
class CASse2Window {
public:
    explicit CASse2Window(const char *at)
    {
        for (std::size_t i = 0; i < kParts; ++i) {
            parts_[i] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(at) + i);
        }
    }

    [[nodiscard]] CAMarks of(char wanted) const
    {
        const __m128i pattern = _mm_set1_epi8(wanted);
        return collect([pattern](__m128i part) { return _mm_cmpeq_epi8(part, pattern); });
    }

    [[nodiscard]] CAMarks upTo(char last) const
    {
        const __m128i highest = _mm_set1_epi8(last);
        return collect([highest](__m128i part) {
            return _mm_cmpeq_epi8(_mm_subs_epu8(part, highest), _mm_setzero_si128());
        });
    }

private:
    template <typename Step>
    CAMarks collect(Step step) const
    {
        CAMarks marks = 0;
        for (std::size_t i = kParts; i-- > 0;) {
            const int bits = _mm_movemask_epi8(step(parts_[i]));
            marks = marks << sizeof(__m128i) | static_cast<CAMarks>(bits);
        }
        return marks;
    }

    static constexpr std::size_t kParts = kCAWindow / sizeof(__m128i);
    __m128i parts_[kParts]{};  // no std::array, which would drop the alignment of the type
};
using CAWindow = CASse2Window;
#else
using CAWindow = CAPlainWindow;
#endif

// A window onto the `length` bytes at `at`, fewer than kCAWindow. NULs follow them.
template <typename Window = CAWindow>
Window CALastWindow(const char *at, std::size_t length)
{
    std::array<char, kCAWindow> bytes{};
    std::memcpy(bytes.data(), at, length);
    return Window(bytes.data());
}
