#include "HTWild.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

#include "HTString.h"

// One heap block: this header, its segments, their texts.
struct HTPattern {
    // A run of literal text and the star in front of it, which only the first one may lack. Only
    // the last text may be empty (behind a star that ends the template).
    struct Segment {
        std::uint8_t wild;
        std::uint32_t length;
        const char *text;
    };

    std::size_t count;

    [[nodiscard]] Segment *begin() { return reinterpret_cast<Segment *>(this + 1); }
    [[nodiscard]] std::span<const Segment> segments() const
    {
        return {reinterpret_cast<const Segment *>(this + 1), count};
    }
};

namespace {

using Segment = HTPattern::Segment;

static_assert(sizeof(HTPattern) % alignof(Segment) == 0);

// Cuts the template into segments; their texts go to `out`, which has room for the whole template.
void compile(const char *text, HTPattern *pattern, char *out)
{
    const char *literal = out;
    bool wild = false;
    const auto append = [&] {
        pattern->begin()[pattern->count++] = {
            .wild = wild ? std::uint8_t{1} : std::uint8_t{0},
            .length = static_cast<std::uint32_t>(out - literal),
            .text = literal,
        };
        literal = out;
    };
    for (const char *in = text; *in != '\0'; ++in) {
        if (*in == '*') {
            if (out != literal) {
                append();
            }
            wild = true;
        } else if (*in != '\\') {
            *out++ = *in;
        } else if (in[1] == '\0') {
            *out++ = '\n';
        } else {
            *out++ = *++in;
        }
    }
    append();
}

// The value of a hexadecimal digit, or -1.
constexpr int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char letter = HTLower(c);
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// Is there a '%' with two hexadecimal digits? `at` may be the end of a string.
bool isEscape(const char *at)
{
    return at[0] == '%' && hexValue(at[1]) >= 0 && hexValue(at[2]) >= 0;
}

char decoded(const char *escape)
{
    return static_cast<char>(hexValue(escape[1]) * 16 + hexValue(escape[2]));
}

bool beginsUserDirectory(std::string_view text)
{
    return text.starts_with("/~") || text.starts_with("file:/~");
}

// The text that the star of one segment matched.
struct Capture {
    const char *text;
    std::size_t length;
};

enum class Comparison : std::uint8_t { Exact, IgnoreCase };

constexpr std::size_t kNone = SIZE_MAX;

// A set of places in a text, a bit each.
constexpr std::size_t kWordBits = 64;
constexpr std::size_t kSmallRow = 16;  // words; enough for texts of 1023 characters

constexpr std::size_t rowWords(std::size_t length)
{
    return length / kWordBits + 1;
}
bool isSet(const std::uint64_t *row, std::size_t at)
{
    return (row[at / kWordBits] >> at % kWordBits & 1) != 0;
}
void setBit(std::uint64_t *row, std::size_t at)
{
    row[at / kWordBits] |= std::uint64_t{1} << at % kWordBits;
}

// One match. "Segment i matches from p" depends on nothing but i and p, so the answers are worked
// out from the last segment to the first and from the end of the text to its start, a bit each, and
// each answer takes one look at the text. Trying one occurrence after the other would take
// exponential time on patterns with many stars.
class Matcher {
public:
    Matcher(const HTPattern &pattern, const char *text, Comparison comparison)
        : segments_(pattern.segments()),
          text_(text),
          length_(std::strlen(text)),
          comparison_(comparison)
    {
    }

    // Does the whole text match? With `captures` (room for one a segment) they are filled in.
    [[nodiscard]] bool run(HTPool *pool, Capture *captures)
    {
        if (!holdsAllTexts()) {
            return false;
        }
        userPath_ = userPathOf(text_);
        std::size_t first = 0;
        if (segments_[0].wild == 0) {
            start_ = mayBeginAt(0, 0) ? literalEnd(segments_[0], 0) : kNone;
            first = 1;
        }
        if (start_ == kNone || !takeRows(pool, captures != nullptr)) {
            return false;
        }
        for (std::size_t index = segments_.size(); index-- > first;) {
            fillRow(index);
        }
        if (!matchesFrom(first, start_)) {
            return false;
        }
        if (captures != nullptr) {
            collect(first, captures);
        }
        return true;
    }

private:
    // Behind the first slash of "scheme://host/~...", kNone in any other text.
    [[nodiscard]] static std::size_t userPathOf(const char *text)
    {
        const char *const colon = std::strstr(text, "://");
        const char *const slash = colon == nullptr ? nullptr : std::strchr(colon + 3, '/');
        return slash != nullptr && slash[1] == '~' ? static_cast<std::size_t>(slash + 1 - text)
                                                   : kNone;
    }

    // False, quickly, for most texts that do not match: the text does not end in that of the last
    // segment or, where case counts, lacks that of another one.
    [[nodiscard]] bool holdsAllTexts() const
    {
        const Segment &last = segments_.back();
        if (last.length > length_ || literalEnd(last, length_ - last.length) == kNone) {
            return false;
        }
        return comparison_ == Comparison::IgnoreCase ||
               std::all_of(segments_.begin(), segments_.end() - 1, [this](const Segment &segment) {
                   return memmem(text_, length_, segment.text, segment.length) != nullptr;
               });
    }

    // A row needs only its follower, so two of them take turns; captures need all of them.
    [[nodiscard]] bool takeRows(HTPool *pool, bool keepAll)
    {
        rowWords_ = rowWords(length_);
        rowCount_ = keepAll ? segments_.size() : 2;
        if (!keepAll && rowWords_ <= kSmallRow) {
            bits_ = small_.data();
            return true;
        }
        const std::size_t size = rowCount_ * rowWords_ * sizeof(std::uint64_t);
        bits_ = static_cast<std::uint64_t *>(pool->alloc(size));
        return bits_ != nullptr;
    }

    [[nodiscard]] std::uint64_t *row(std::size_t index) const
    {
        return bits_ + index % rowCount_ * rowWords_;
    }

    // Works out, for each place of the text, whether a search for the segment that begins there
    // ends in a match. The occurrences that a failed search has tried are not tried again.
    void fillRow(std::size_t index)
    {
        const Segment &segment = segments_[index];
        if (segment.length == 0) {
            return;  // matches the rest, wherever it begins
        }
        std::uint64_t *const bits = row(index);
        std::fill_n(bits, rowWords_, 0);
        for (std::size_t at = length_; at-- > start_;) {
            const std::size_t end = literalEnd(segment, at);
            if (end == kNone ? isSet(bits, at + 1)
                             : matchesFrom(index + 1, end) || isSet(bits, end)) {
                setBit(bits, at);
            }
        }
    }

    // Do the segments from `index` on match the text from `at` on?
    [[nodiscard]] bool matchesFrom(std::size_t index, std::size_t at) const
    {
        if (index == segments_.size()) {
            return at == length_;
        }
        return mayBeginAt(index, at) && (segments_[index].length == 0 || isSet(row(index), at));
    }

    [[nodiscard]] bool mayBeginAt(std::size_t index, std::size_t at) const
    {
        const std::string_view own(segments_[index].text, segments_[index].length);
        if (at == userPath_ && own.starts_with('~')) {
            return true;
        }
        const bool userDirectory =
            at == userPath_ || beginsUserDirectory({text_ + at, length_ - at});
        return !userDirectory || beginsUserDirectory(own);
    }

    // Where the segment's text, found at `at`, ends; kNone when it is not there.
    [[nodiscard]] std::size_t literalEnd(const Segment &segment, std::size_t at) const
    {
        if (length_ - at < segment.length) {
            return kNone;
        }
        const char *const begin = text_ + at;
        const bool same = comparison_ == Comparison::Exact
                              ? std::memcmp(begin, segment.text, segment.length) == 0
                              : std::equal(segment.text, segment.text + segment.length, begin,
                                           [](char a, char b) { return HTLower(a) == HTLower(b); });
        return same ? at + segment.length : kNone;
    }

    // Follows the occurrences that lead to the match.
    void collect(std::size_t first, Capture *captures) const
    {
        std::size_t at = start_;
        for (std::size_t index = first; index < segments_.size(); ++index) {
            const Segment &segment = segments_[index];
            std::size_t found = segment.length == 0 ? length_ : at;
            std::size_t end = segment.length == 0 ? length_ : literalEnd(segment, found);
            while (end == kNone || !matchesFrom(index + 1, end)) {
                found = end == kNone ? found + 1 : end;
                end = literalEnd(segment, found);
            }
            *captures++ = {.text = text_ + at, .length = found - at};
            at = end;
        }
    }

    const std::span<const Segment> segments_;
    const char *const text_;
    const std::size_t length_;
    const Comparison comparison_;
    std::size_t userPath_ = kNone;
    std::size_t start_ = 0;  // where the first star begins
    std::size_t rowWords_ = 0;
    std::size_t rowCount_ = 0;
    std::uint64_t *bits_ = nullptr;
    std::array<std::uint64_t, 2 * kSmallRow> small_{};
};

// One match with percent-decoding. A '%' of the pattern can be read in two ways where the text has
// "%25": as its first character or as all three. Trying one after the other takes exponential time,
// so all places are followed at once: from the end of the pattern to its start, each step (a
// character or a star) turns the set of places from which the rest of the pattern matches into the
// set for one step more. A step looks at each place once at most.
class UrlMatcher {
public:
    UrlMatcher(const HTPattern &pattern, const char *text)
        : segments_(pattern.segments()), text_(text), length_(std::strlen(text))
    {
    }

    // Does the whole text match? With `captures` (room for one a segment) they are filled in.
    [[nodiscard]] bool run(HTPool *pool, Capture *captures)
    {
        if (!beginsAlike() || !takeRows(pool, captures != nullptr)) {
            return false;
        }
        std::size_t step = steps();
        setBit(row(step), length_);
        for (auto segment = segments_.rbegin(); segment != segments_.rend(); ++segment) {
            for (std::size_t i = segment->length; i-- > 0; --step) {
                if (!takeCharacter(segment->text[i], row(step), row(step - 1))) {
                    return false;
                }
            }
            if (segment->wild != 0) {
                takeStar(row(step), row(step - 1));
                --step;
            }
        }
        if (!isSet(row(0), 0)) {
            return false;
        }
        if (captures != nullptr) {
            collect(captures);
        }
        return true;
    }

private:
    // False, quickly, for most texts that do not match: another text in front of the first star or
    // the first '%'.
    [[nodiscard]] bool beginsAlike() const
    {
        if (segments_[0].wild != 0) {
            return true;
        }
        std::size_t at = 0;
        for (const char wanted : std::string_view(segments_[0].text, segments_[0].length)) {
            if (wanted == '%') {
                return true;
            }
            if (text_[at] != wanted && !isEscapeOf(at, wanted)) {
                return false;
            }
            at = next(at);
        }
        return true;
    }

    [[nodiscard]] std::size_t steps() const
    {
        std::size_t count = 0;
        for (const Segment &segment : segments_) {
            count += segment.wild + std::size_t{segment.length};
        }
        return count;
    }

    // A yes or no needs only the present set; captures need the set of every step.
    [[nodiscard]] bool takeRows(HTPool *pool, bool keepAll)
    {
        rowWords_ = rowWords(length_);
        keepsAll_ = keepAll;
        if (!keepAll && rowWords_ <= kSmallRow) {
            bits_ = small_.data();
            return true;
        }
        const std::size_t words = (keepAll ? steps() + 1 : 1) * rowWords_;
        bits_ = static_cast<std::uint64_t *>(pool->alloc(words * sizeof(std::uint64_t)));
        if (bits_ == nullptr) {
            return false;
        }
        std::fill_n(bits_, words, 0);
        return true;
    }

    // The places from which the pattern matches behind its first `step` steps.
    [[nodiscard]] std::uint64_t *row(std::size_t step) const
    {
        return bits_ + (keepsAll_ ? step * rowWords_ : 0);
    }

    // Finds the places from which `wanted` leads to one of `from`; false when there is none. Both
    // may be the same row: a place is in front of the one that it leads to.
    [[nodiscard]] bool takeCharacter(char wanted, const std::uint64_t *from,
                                     std::uint64_t *to) const
    {
        bool any = false;
        for (std::size_t word = 0; word < rowWords_; ++word) {
            std::uint64_t left = from[word];
            if (from == to) {
                to[word] = 0;
            }
            for (; left != 0; left &= left - 1) {
                const std::size_t at =
                    word * kWordBits + static_cast<std::size_t>(std::countr_zero(left));
                if (at >= 1 && text_[at - 1] == wanted) {
                    setBit(to, at - 1);
                    any = true;
                }
                if (at >= 3 && isEscapeOf(at - 3, wanted)) {
                    setBit(to, at - 3);
                    any = true;
                }
            }
        }
        return any;
    }

    // Finds the places from which a star leads to one of `from`.
    void takeStar(const std::uint64_t *from, std::uint64_t *to) const
    {
        if (from != to) {
            std::copy_n(from, rowWords_, to);
        }
        for (std::size_t at = length_; at-- > 0;) {
            if (isSet(to, next(at))) {
                setBit(to, at);
            }
        }
    }

    [[nodiscard]] bool isEscapeOf(std::size_t at, char wanted) const
    {
        return isEscape(text_ + at) && decoded(text_ + at) == wanted;
    }

    // A star never ends inside an escape.
    [[nodiscard]] std::size_t next(std::size_t at) const
    {
        return at + (isEscape(text_ + at) ? 3 : 1);
    }

    // Walks through the match, in which each star matches as little as possible.
    void collect(Capture *captures) const
    {
        std::size_t at = 0;
        std::size_t step = 0;
        for (const Segment &segment : segments_) {
            if (segment.wild != 0) {
                const std::size_t begin = at;
                for (++step; !isSet(row(step), at);) {
                    at = next(at);
                }
                *captures++ = {.text = text_ + begin, .length = at - begin};
            }
            for (std::size_t i = 0; i < segment.length; ++i) {
                ++step;
                const bool plain = text_[at] == segment.text[i] && isSet(row(step), at + 1);
                at += plain ? 1 : 3;
            }
        }
    }

    const std::span<const Segment> segments_;
    const char *const text_;
    const std::size_t length_;
    bool keepsAll_ = false;
    std::size_t rowWords_ = 0;
    std::uint64_t *bits_ = nullptr;
    std::array<std::uint64_t, kSmallRow> small_{};
};

const char *fill(const HTPattern &replacement, std::span<const Capture> captures, HTPool *pool)
{
    std::size_t length = 0;
    std::size_t used = 0;
    for (const Segment &segment : replacement.segments()) {
        if (segment.wild != 0 && used < captures.size()) {
            length += captures[used++].length;
        }
        length += segment.length;
    }
    char *const result = static_cast<char *>(pool->alloc(length + 1));
    if (result == nullptr) {
        return nullptr;
    }
    char *out = result;
    used = 0;
    for (const Segment &segment : replacement.segments()) {
        if (segment.wild != 0 && used < captures.size()) {
            const Capture &capture = captures[used++];
            out = std::copy_n(capture.text, capture.length, out);
        }
        out = std::copy_n(segment.text, segment.length, out);
    }
    *out = '\0';
    return result;
}

// What a matcher (Matcher or UrlMatcher) answers for the two public functions.
template <typename OneMatcher>
const char *match(OneMatcher *matcher, const HTPattern &pattern, const HTPattern *replacement,
                  const char *text, HTPool *pool)
{
    const auto run = [matcher, pool](Capture *captures) {
        const HTPoolScope scope(pool);
        return matcher->run(pool, captures);
    };
    if (replacement == nullptr) {
        return run(nullptr) ? pool->copy(text) : nullptr;
    }
    auto *const captures = static_cast<Capture *>(pool->alloc(pattern.count * sizeof(Capture)));
    if (captures == nullptr || !run(captures)) {
        return nullptr;
    }
    const std::size_t stars = pattern.count - (pattern.segments()[0].wild == 0 ? 1 : 0);
    return fill(*replacement, {captures, stars}, pool);
}

}  // namespace

HTPattern *HTPattern_new(const char *text)
{
    if (text == nullptr || *text == '\0') {
        return nullptr;
    }
    const std::size_t length = std::strlen(text);
    const auto stars = static_cast<std::size_t>(std::count(text, text + length, '*'));
    const std::size_t header = sizeof(HTPattern) + (stars + 1) * sizeof(Segment);
    char *const memory =
        length > UINT32_MAX ? nullptr : static_cast<char *>(std::malloc(header + length));
    if (memory == nullptr) {
        HTOutOfMemory("library/HTWild", "HTPattern_new", __LINE__, header + length);
        return nullptr;
    }
    auto *const pattern = new (memory) HTPattern{.count = 0};
    compile(text, pattern, memory + header);
    return pattern;
}

const char *HTPattern_match(const HTPattern *pattern, const HTPattern *replacement,
                            const char *text, bool caseSensitive, HTPool *pool)
{
    if (pattern == nullptr || text == nullptr) {
        return nullptr;
    }
    Matcher matcher(*pattern, text, caseSensitive ? Comparison::Exact : Comparison::IgnoreCase);
    return match(&matcher, *pattern, replacement, text, pool);
}

const char *HTPattern_url_match(const HTPattern *pattern, const HTPattern *replacement,
                                const char *url, HTPool *pool)
{
    if (pattern == nullptr || url == nullptr) {
        return nullptr;
    }
    UrlMatcher matcher(*pattern, url);
    return match(&matcher, *pattern, replacement, url, pool);
}

char *HTPattern_stringitize(const HTPattern *pattern)
{
    std::span<const Segment> segments;
    if (pattern != nullptr) {
        segments = pattern->segments();
    }
    std::size_t length = 0;
    for (const Segment &segment : segments) {
        length += segment.wild + std::size_t{segment.length};
    }
    char *const result = static_cast<char *>(std::malloc(length + 1));
    if (result == nullptr) {
        HTOutOfMemory("library/HTWild", "HTPattern_stringitize", __LINE__, length + 1);
        return nullptr;
    }
    char *out = result;
    for (const Segment &segment : segments) {
        out = std::fill_n(out, segment.wild, '*');
        out = std::copy_n(segment.text, segment.length, out);
    }
    *out = '\0';
    return result;
}

const char *HTPattern_firstWild(const HTPattern *pattern, const char *text)
{
    if (pattern == nullptr || text == nullptr) {
        return nullptr;
    }
    const Segment &first = pattern->segments()[0];
    if (first.wild != 0) {
        return text;
    }
    const bool reachesStar = pattern->count > 1 && strnlen(text, first.length) == first.length;
    return reachesStar ? text + first.length : nullptr;
}

void HTPattern_free(HTPattern *pattern)
{
    std::free(pattern);
}
