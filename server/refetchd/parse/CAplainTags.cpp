#include "parse/CAplainTags.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "HTString.h"
#include "parse/CAmarks.h"
#include "parse/CAmodernTags.h"

namespace {

// True if the bytes behind a "<" are the name of a tag that holds no link, or an end tag. `text`
// holds a ">".
bool isPlain(const char *text)
{
    return *text == '/' ? HTIsLetter(text[1]) : HTIsLetter(*text) && !CAMayBeModernTag(text);
}

constexpr HTCharacterSet kNoName(" \t\n\f\r=");

// True if the quote begins a value: a name of letters and "=" are before it, and before the name is
// white space behind a byte after which a name can begin. `from` is where the search for them ends:
// in the tag's name, or behind a value.
bool beginsValue(const char *quote, const char *from)
{
    const char *at = quote - 1;
    if (at <= from || *at != '=') {
        return false;
    }
    do {
        --at;
    } while (at > from && HTIsLetter(*at));
    return (*at == ' ' || *at == '\n') && quote - at > 2 && !kNoName.has(at[-1]);
}

constexpr std::size_t kNone = kCAWindow;

// The place of the ">" that ends the tag at `place`: the first one outside of quoted values. kNone
// if it is not in the window at `at`, or if it is not clear whether a quote begins a value.
std::size_t closeOf(const char *at, std::size_t place, CAMarks ends)
{
    for (ends = CAMarksFrom(ends, place); ends != 0; ends &= ends - 1) {
        const std::size_t end = CAFirstMark(ends);
        const char quote = at[end];
        if (quote == '>') {
            return end;
        }
        if (!beginsValue(at + end, at + place)) {
            return kNone;
        }
        do {
            ends &= ends - 1;
        } while (ends != 0 && at[CAFirstMark(ends)] != quote);
        if (ends == 0) {
            return kNone;
        }
        place = CAFirstMark(ends) + 1;
    }
    return kNone;
}

struct Passed {
    std::size_t length;
    bool isEnd;  // what follows cannot be passed
};

// Passes text and plain tags in the window of `length` bytes at `at`, up to the first tag that does
// not end there, or is not plain, or has a quote of which it is not clear whether it begins a
// value.
Passed passWindow(const char *at, std::size_t length, CAMarks opens)
{
    const CAMarks ends = CAWindow::ofEnds(at);
    while (opens != 0) {
        const std::size_t open = CAFirstMark(opens);
        if (CAMarksFrom(ends, open) == 0) {
            return {open, open == 0};
        }
        const std::size_t close = isPlain(at + open + 1) ? closeOf(at, open, ends) : kNone;
        if (close == kNone) {
            return {open, true};
        }
        opens = CAMarksFrom(opens, close);
    }
    return {length, false};
}

// The same for fewer than kCAWindow bytes, the last ones of a block.
Passed passLast(const char *at, std::size_t length)
{
    std::array<char, kCAWindow> last{};
    std::memcpy(last.data(), at, length);
    return passWindow(last.data(), length, CAWindow::of(last.data(), '<'));
}

}  // namespace

const char *CAPassPlainTags(const char *at, const char *end)
{
    Passed passed{0, false};
    while (at != end && !passed.isEnd) {
        const auto left = static_cast<std::size_t>(end - at);
        const CAMarks opens = left < kCAWindow ? 0 : CAWindow::of(at, '<');
        if (opens != 0) {
            passed = passWindow(at, kCAWindow, opens);
            at += passed.length;
        } else if (left < kCAWindow) {
            passed = passLast(at, left);
            at += passed.length;
        } else {  // much text: the fastest search for a single byte
            const void *const open = std::memchr(at + kCAWindow, '<', left - kCAWindow);
            at = open == nullptr ? end : static_cast<const char *>(open);
        }
    }
    return at;
}
