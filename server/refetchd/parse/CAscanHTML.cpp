#include "parse/CAscanHTML.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "HTString.h"
#include "base/CAtrace.h"

namespace {

// A tag that holds a link. The name includes the space after it, so a name followed by a tab or a
// line feed is not found.
struct Target {
    std::string_view tag;
    std::string_view attribute;
    bool raisesDepth;  // the link is one level deeper than the page
    bool isImage;
};

constexpr std::array<Target, 12> Targets = {{
    {"a ", "href", true, false},
    {"img ", "src", false, true},
    {"link ", "href", true, false},
    {"frame ", "src", false, false},
    {"iframe ", "src", true, false},
    {"object ", "data", false, false},
    {"layer ", "src", false, false},
    {"ilayer ", "src", false, false},
    {"script ", "src", false, false},
    {"area ", "href", false, false},
    {"body ", "background", false, false},
    {"meta ", "url", false, false},
}};

// One bit for every target.
using TargetSet = std::uint16_t;
static_assert(Targets.size() <= 16, "a bit for each");

// For each of the first three places of a tag and each byte there, the targets that allow it, in
// either case. Most tags of a page are no targets, and this rules them out quickly.
using TargetIndex = std::array<std::array<TargetSet, 256>, 3>;

consteval TargetIndex indexTargets()
{
    TargetIndex index{};
    for (std::size_t place = 0; place < index.size(); ++place) {
        for (std::size_t c = 0; c < 256; ++c) {
            for (std::size_t i = 0; i < Targets.size(); ++i) {
                const std::string_view tag = Targets[i].tag;
                const bool fits =
                    place >= tag.size() || tag[place] == HTLower(static_cast<char>(c));
                index[place][c] |= static_cast<TargetSet>(fits ? 1U << i : 0U);
            }
        }
    }
    return index;
}

constexpr TargetIndex kTargetIndex = indexTargets();

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// True when `text` begins with `word`, ignoring case. `word` is in lower case; `text` ends in a
// NUL.
bool begins(const char *text, std::string_view word)
{
    for (const char c : word) {
        if (HTLower(*text++) != c) {
            return false;
        }
    }
    return true;
}

// The targets that a text can begin with. Reads nothing after a NUL or a ">", which no target has.
TargetSet targetsAt(const char *text)
{
    TargetSet set = std::numeric_limits<TargetSet>::max();
    for (const auto &place : kTargetIndex) {
        set &= place[static_cast<unsigned char>(*text++)];
        if (set == 0) {
            break;
        }
    }
    return set;
}

// True unless the bytes behind a "<" show that its tag holds no link.
bool mayBeTarget(const char *text)
{
    return targetsAt(text) != 0 || isSpace(*text);
}

const Target *targetOf(const char *text)
{
    TargetSet set = targetsAt(text);
    for (; set != 0; set = static_cast<TargetSet>(set & (set - 1))) {
        const Target &target = Targets[static_cast<std::size_t>(std::countr_zero(set))];
        if (begins(text, target.tag)) {
            return &target;
        }
    }
    return nullptr;
}

char *skipSpace(char *text)
{
    while (isSpace(*text)) {
        ++text;
    }
    return text;
}

constexpr HTCharacterSet kEndsValue({" \t\r\n>\0", 6});  // an unquoted one

// The value of an attribute; `text` begins after its "=". Ends the value with a NUL, in place.
// Null when no end is found. This includes the unquoted value of <a href=x>, because scan() has
// replaced the ">" by a NUL; in a tag that was put together from several blocks it is still there.
char *cutValue(char *text)
{
    text = skipSpace(text);
    const char quote = *text;
    char *end = nullptr;
    if (quote == '"' || quote == '\'') {
        text = skipSpace(text + 1);
        end = std::strchr(text, quote);
    } else {
        end = text;
        while (!kEndsValue.has(*end)) {
            ++end;
        }
    }
    if (end == nullptr || *end == '\0') {
        return nullptr;
    }
    while (end > text && isSpace(end[-1])) {
        --end;
    }
    *end = '\0';
    return text;
}

// The value after the first occurrence of `attribute` in the text of a tag, even within another
// name or a quoted value, such as the "url" of <meta content="5; url=x">. Later occurrences do not
// count. Null without a value.
char *valueOf(std::string_view attribute, char *text)
{
    const char first = attribute.front();
    for (; *text != '\0'; ++text) {
        if (HTLower(*text) == first && begins(text, attribute)) {
            char *const equals = skipSpace(text + attribute.size());
            return *equals == '=' ? cutValue(equals + 1) : nullptr;
        }
    }
    return nullptr;
}

char *find(char *from, const char *end, char wanted)
{
    return static_cast<char *>(std::memchr(from, wanted, static_cast<std::size_t>(end - from)));
}

// True if the "<" at `open` begins a tag: the mark before it is a ">". Behind another "<" it is
// within a tag; without a mark before it, if the window begins within one. So a tag can be judged
// without a look at those before it.
bool isTag(std::size_t open, CAMarks opens, CAMarks closes, bool beginsWithin)
{
    const CAMarks opensBefore = CAMarksBefore(opens, open);
    const CAMarks closesBefore = CAMarksBefore(closes, open);
    return closesBefore > opensBefore || (closesBefore == opensBefore && !beginsWithin);
}

// Where the next "<" is; `end` if there is none. Faster than windows where there is much text.
char *passText(char *at, char *end)
{
    char *const open = find(at, end, '<');
    return open == nullptr ? end : open;
}

unsigned count(std::size_t length)
{
    return static_cast<unsigned>(length);
}

}  // namespace

void CAScanHTML::scan(char *data, char *end)
{
    char *const at = reassemblyLength_ != 0 ? finishPending(data, end) : data;
    const char *const tag = parseTags(at, end);
    if (tag != nullptr) {
        bufferIncomplete(tag, static_cast<std::size_t>(end - tag),
                         static_cast<std::size_t>(tag - data));
    }
}

// Parses the tags in [at, end). Returns the "<" of the one that does not end there; null if all do.
char *CAScanHTML::parseTags(char *at, char *end)
{
    char *tag = nullptr;
    while (at != end) {
        const auto left = static_cast<std::size_t>(end - at);
        const CAWindow window = left >= kCAWindow ? CAWindow(at) : CALastWindow(at, left);
        const CAMarks opens = window.of('<');
        if (opens == 0 && tag == nullptr) {
            at = passText(at, end);
            continue;
        }
        tag = parseWindow(window, opens, at, tag);
        at += std::min(left, kCAWindow);
    }
    return tag;
}

// Parses the tags that end in the window onto the bytes at `at`, which has "<" at `opens`. `tag` is
// the "<" of a tag that began before it, or null. Returns the same for the next window.
char *CAScanHTML::parseWindow(const CAWindow &window, CAMarks opens, char *at, char *tag)
{
    const CAMarks closes = window.of('>');
    if (tag != nullptr && closes != 0) {
        parseTag(tag, at + CAFirstMark(closes));
    }
    const CAMarks ends = window.of('/') >> 1U;  // the "<" of most end tags; they hold no link
    for (CAMarks left = opens & ~ends; left != 0; left &= left - 1) {
        const std::size_t open = CAFirstMark(left);
        const CAMarks closesAfter = CAMarksFrom(closes, open);
        if (mayBeTarget(at + open + 1) && closesAfter != 0 &&
            isTag(open, opens, closes, tag != nullptr)) {
            parseTag(at + open, at + CAFirstMark(closesAfter));
        }
    }
    if (closes == 0 && (tag != nullptr || opens == 0)) {
        return tag;
    }
    return opens > closes ? at + CAFirstMark(CAMarksBehind(opens, closes)) : nullptr;
}

// Completes the pending tag with the start of the block. Returns where the scan of the block
// begins.
char *CAScanHTML::finishPending(char *data, char *end)
{
    char *const open = find(data, end, '<');
    const char *const close = find(data, end, '>');
    if (close == nullptr) {
        queueUp(data, static_cast<std::size_t>(end - data));
        return data;
    }
    if (open != nullptr && open < close) {
        reassemblyLength_ = 0;  // another tag begins before this one ends: drop it
        return open;
    }
    parsePending(data, static_cast<std::size_t>(close + 1 - data));
    return data;  // the end of the pending tag holds no "<", so it is not scanned twice
}

void CAScanHTML::queueUp(const char *data, std::size_t length)
{
    if (reassemblyLength_ + length < kReassemblySize - 1) {
        std::memcpy(&reassembly_[reassemblyLength_], data, length);
        reassemblyLength_ += length;
        reassembly_[reassemblyLength_] = '\0';
        CATrace("HTML........ parser queueing up another %u bytes.\n", count(length));
        return;
    }
    reassemblyLength_ = 0;  // before the trace line, which therefore always says "0 buffered"
    CATrace(
        "HTML........ parser giving up on reassembly (%u buffered + %u incoming with no end in "
        "sight).\n",
        count(reassemblyLength_), count(length));
}

void CAScanHTML::parsePending(const char *piece, std::size_t length)
{
    const std::size_t total = reassemblyLength_ + length;
    if (total < kReassemblySize) {
        std::memcpy(&reassembly_[reassemblyLength_], piece, length);
        reassembly_[total] = '\0';
        CATrace("HTML........ parser parsing reconstructed tag \"%s\".\n", reassembly_.data());
        parseTag(reassembly_.data(), &reassembly_[total]);
    } else {
        CATrace("HTML........ parser ran out of reassembly space (%u extra bytes needed).\n",
                count(total - (kReassemblySize - 1)));
    }
    reassemblyLength_ = 0;
}

void CAScanHTML::bufferIncomplete(const char *tag, std::size_t length, std::size_t offset)
{
    if (length >= kReassemblySize - 1) {
        CATrace("HTML........ can't buffer %u characters (SP is %u chars in).\n", count(length),
                count(offset));
        return;
    }
    CATrace("HTML........ parser buffering %u characters of an incomplete tag.\n", count(length));
    std::memcpy(reassembly_.data(), tag, length);
    reassembly_[length] = '\0';
    reassemblyLength_ = length;
}

// Parses the tag from its "<" to its end, which may be its ">" or the NUL behind it. NULs are
// written into the tag.
void CAScanHTML::parseTag(char *tag, char *end)
{
    char *const text = skipSpace(tag + 1);
    const Target *const target = targetOf(text);
    if (target == nullptr) {
        return;
    }
    if (target->isImage && !inlineImages_) {
        CATrace("HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n");
        return;
    }
    *end = '\0';
    const char *const link = valueOf(target->attribute, skipSpace(text + target->tag.size()));
    if (link == nullptr) {
        return;
    }
    CATrace("Found....... URL \"%s\".\n", link);
    sink_->processFoundUrl(link, target->raisesDepth);
}
