#include "parse/CAplainTags.h"

#include <algorithm>
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

struct Passed {
    std::size_t length;
    bool isEnd;  // what follows cannot be passed
};

// The marks of up to kCAWindow bytes of a page.
class Tags {
public:
    Tags(const CAWindow &window, const char *at, std::size_t length)
        : window_(window), at_(at), length_(length)
    {
    }

    // Passes text and plain tags up to the first tag that does not end in the window, or is not
    // plain, or has a quote of which it is not clear whether it begins a value. `opens`: every "<".
    [[nodiscard]] Passed pass(CAMarks opens) const
    {
        const CAMarks closes = window_.of('>');
        const CAMarks doubles = window_.of('"');
        const CAMarks singles = window_.of('\'');
        while (opens != 0) {
            const std::size_t open = CAFirstMark(opens);
            if (CAMarksFrom(closes, open) == 0) {
                return {open, open == 0};
            }
            const std::size_t close =
                isPlain(at_ + open + 1) ? closeOf(open, closes, doubles, singles) : kNone;
            if (close == kNone) {
                return {open, true};
            }
            opens = CAMarksFrom(opens, close);
        }
        return {length_, false};
    }

private:
    static constexpr std::size_t kNone = kCAWindow;

    // The place of the ">" that ends the tag at `place`: the first one outside of quoted values.
    [[nodiscard]] std::size_t closeOf(std::size_t place, CAMarks closes, CAMarks doubles,
                                      CAMarks singles) const
    {
        for (;;) {
            closes = CAMarksFrom(closes, place);
            const CAMarks quotes = CAMarksFrom(doubles | singles, place);
            if (closes == 0) {
                return kNone;
            }
            if (quotes == 0 || CAFirstMark(closes) < CAFirstMark(quotes)) {
                return CAFirstMark(closes);
            }
            const std::size_t quote = CAFirstMark(quotes);
            const CAMarks same = (at_[quote] == '"' ? doubles : singles) & quotes & (quotes - 1);
            if (same == 0 || !beginsValue(quote, place)) {
                return kNone;
            }
            place = CAFirstMark(same) + 1;
            if (place == kCAWindow) {
                return kNone;
            }
        }
    }

    // True only if the quote begins a value: a name and "=" are before it, and before the name is
    // white space behind a byte after which a name can begin. `from` is where the search for them
    // ends: in the tag's name, or behind a value.
    [[nodiscard]] bool beginsValue(std::size_t quote, std::size_t from) const
    {
        if (quote < from + 3 || at_[quote - 1] != '=') {
            return false;
        }
        const CAMarks ends = window_.upTo(' ') | window_.of('=') | window_.of('/');
        const CAMarks before = CAMarksFrom(CAMarksBefore(ends, quote - 1), from);
        if (before == 0) {
            return false;
        }
        const std::size_t space = CALastMark(before);
        return (at_[space] == ' ' || at_[space] == '\n') && space + 2 < quote && space > 0 &&
               (ends >> (space - 1) & 1U) == 0;
    }

    const CAWindow &window_;
    const char *const at_;
    const std::size_t length_;
};

}  // namespace

const char *CAPassPlainTags(const char *at, const char *end)
{
    Passed passed{0, false};
    while (at != end && !passed.isEnd) {
        const auto left = static_cast<std::size_t>(end - at);
        const CAWindow window = left >= kCAWindow ? CAWindow(at) : CALastWindow(at, left);
        const CAMarks opens = window.of('<');
        if (opens == 0) {  // much text: the fastest search for a single byte
            const void *const open = std::memchr(at, '<', left);
            at = open == nullptr ? end : static_cast<const char *>(open);
            continue;
        }
        passed = Tags(window, at, std::min(left, kCAWindow)).pass(opens);
        at += passed.length;
    }
    return at;
}
