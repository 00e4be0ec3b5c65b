#include "parse/CAscanHTML.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "HTString.h"
#include "base/CAtrace.h"
#include "parse/CAmarks.h"

namespace {

// A tag that holds a link. A space must follow its name: with a tab or a line feed it is not found.
struct Target {
    std::string_view name;  // in lower case, like the attribute
    std::string_view attribute;
    bool raisesDepth;  // the link is one level deeper than the page
    bool isImage;
};

constexpr std::array<Target, 12> Targets = {{
    {"a", "href", true, false},
    {"img", "src", false, true},
    {"link", "href", true, false},
    {"frame", "src", false, false},
    {"iframe", "src", true, false},
    {"object", "data", false, false},
    {"layer", "src", false, false},
    {"ilayer", "src", false, false},
    {"script", "src", false, false},
    {"area", "href", false, false},
    {"body", "background", false, false},
    {"meta", "url", false, false},
}};

// The bit that makes a capital letter a small one. No other byte becomes a letter by it.
constexpr char kLowerCase = 'a' ^ 'A';

constexpr bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// One bit for every target, and one for white space, behind which any of them may come.
using TargetSet = std::uint16_t;
constexpr TargetSet kSpace = 0x8000;
static_assert(Targets.size() <= 15, "a bit for each");

// For each of the first three places behind a "<" and each byte there, the targets that allow it,
// in either case. Most tags of a page are no targets, and this rules them out quickly.
using TargetIndex = std::array<std::array<TargetSet, 256>, 3>;

consteval TargetIndex indexTargets()
{
    TargetIndex index{};
    for (std::size_t place = 0; place < index.size(); ++place) {
        for (std::size_t c = 0; c < 256; ++c) {
            const char byte = static_cast<char>(c);
            index[place][c] = place > 0 || isSpace(byte) ? kSpace : 0;
            for (std::size_t i = 0; i < Targets.size(); ++i) {
                const std::string_view name = Targets[i].name;
                const bool fits = place < name.size()    ? name[place] == HTLower(byte)
                                  : place == name.size() ? byte == ' '
                                                         : true;
                index[place][c] |= static_cast<TargetSet>(fits ? 1U << i : 0U);
            }
        }
    }
    return index;
}

constexpr TargetIndex kTargetIndex = indexTargets();

template <std::size_t Place>
TargetSet targetsWith(const char *text)
{
    return kTargetIndex[Place][static_cast<unsigned char>(text[Place])];
}

// True unless the first three bytes behind a "<" show that its tag holds no link. Two of them tell
// most tags.
bool mayBeTarget(const char *text)
{
    const TargetSet set = targetsWith<0>(text) & targetsWith<1>(text);
    return set != 0 && (set & targetsWith<2>(text)) != 0;
}

// True when `text` begins with `word`, ignoring case. `word` has only letters in lower case; `text`
// ends in a NUL or a ">".
bool begins(const char *text, std::string_view word)
{
    for (const char letter : word) {
        if ((*text++ | kLowerCase) != letter) {
            return false;
        }
    }
    return true;
}

// The target whose name `text` begins with; null if there is none. The text ends as above.
const Target *targetOf(const char *text)
{
    for (const Target &target : Targets) {
        if (begins(text, target.name) && text[target.name.size()] == ' ') {
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
        if ((*text | kLowerCase) == first && begins(text, attribute)) {
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

char *findOrEnd(char *from, char *end, char wanted)
{
    char *const found = find(from, end, wanted);
    return found == nullptr ? end : found;
}

// True if `at` is within a tag: a "<" is in [outside, at), and no ">" behind it. `outside` is
// outside of a tag.
bool isWithin(const char *outside, const char *at)
{
    if (at <= outside) {
        return false;
    }
    const auto *const open =
        static_cast<const char *>(memrchr(outside, '<', static_cast<std::size_t>(at - outside)));
    return open != nullptr &&
           std::memchr(open, '>', static_cast<std::size_t>(at - open)) == nullptr;
}

// Finds the tags of a block that may hold a link. It looks for each "<", but only where the name of
// a target follows for a ">": before it, because a "<" within another tag begins none, and behind.
class TagSearch {
public:
    struct Tag {
        char *open;
        char *close;  // its ">"
    };

    // `at` is outside of a tag.
    TagSearch(char *at, char *end) : at_(at), next_(at), outside_(at), end_(end) {}

    // Finds the next tag, which the caller may change afterwards; false if there is none.
    bool next(Tag *tag)
    {
        for (;;) {
            while (left_ != 0) {
                const std::size_t open = CAFirstMark(left_);
                left_ &= left_ - 1;
                if (!mayBeTarget(at_ + open + 1)) {
                    continue;
                }
                const CAMarks closes = CAWindow::of(at_, '>');
                if (isOutside(open, closes)) {
                    return takeAt(open, CAMarksFrom(closes, open), tag);
                }
            }
            if (end_ - next_ < static_cast<std::ptrdiff_t>(kCAWindow) + kLook) {
                return takeOfRest(tag);
            }
            at_ = next_;
            left_ = opens_ = CAWindow::of(at_, '<');
            next_ = opens_ != 0 ? at_ + kCAWindow : findOrEnd(at_ + kCAWindow, end_, '<');
        }
    }

    // The "<" of the tag that does not end in the block; null if there is none.
    [[nodiscard]] char *unfinished() const
    {
        const auto length = static_cast<std::size_t>(end_ - outside_);
        auto *const close = static_cast<char *>(memrchr(outside_, '>', length));
        return find(close == nullptr ? outside_ : close, end_, '<');
    }

private:
    static constexpr std::ptrdiff_t kLook = kTargetIndex.size();  // bytes for mayBeTarget()

    // True if the "<" at this place of the window is not within another tag.
    [[nodiscard]] bool isOutside(std::size_t open, CAMarks closes) const
    {
        const CAMarks opensBefore = CAMarksBefore(opens_, open);
        const CAMarks closesBefore = CAMarksBefore(closes, open);
        return closesBefore > opensBefore ||
               (closesBefore == opensBefore && !isWithin(outside_, at_));
    }

    // The tag at this place of the window. `closes`: each ">" behind it in the window.
    bool takeAt(std::size_t open, CAMarks closes, Tag *tag)
    {
        if (closes == 0) {
            left_ = 0;
            return takeTo(at_ + open, find(next_, end_, '>'), tag);
        }
        const std::size_t close = CAFirstMark(closes);
        opens_ = CAMarksFrom(opens_, close);
        left_ = opens_;
        outside_ = at_ + close + 1;
        *tag = {at_ + open, at_ + close};
        return true;
    }

    // For the last bytes of the block, which are too few for a window.
    bool takeOfRest(Tag *tag)
    {
        while (char *const open = find(next_, end_, '<')) {
            const bool isOther = end_ - open > kLook && !mayBeTarget(open + 1);
            if (!isOther && !isWithin(outside_, open)) {
                return takeTo(open, find(open, end_, '>'), tag);
            }
            next_ = open + 1;
        }
        return false;
    }

    // A tag that ends behind the window; at null if it does not end in the block.
    bool takeTo(char *open, char *close, Tag *tag)
    {
        if (close == nullptr) {
            next_ = end_;
            return false;
        }
        next_ = close + 1;
        outside_ = next_;
        *tag = {open, close};
        return true;
    }

    char *at_;           // the window
    CAMarks opens_ = 0;  // each "<" in the window, from `outside_` on
    CAMarks left_ = 0;   // those that are not yet looked at
    char *next_;         // where the next window begins
    char *outside_;      // outside of a tag: the begin, or behind the last tag found
    char *const end_;
};

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

// Parses the tags in [at, end), which begins outside of a tag. Returns the "<" of the one that does
// not end there; null if all do.
char *CAScanHTML::parseTags(char *at, char *end)
{
    TagSearch search(at, end);
    TagSearch::Tag tag{};
    while (search.next(&tag)) {
        parseTag(tag.open, tag.close);
    }
    return search.unfinished();
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
    const char *const link = valueOf(target->attribute, text + target->name.size());
    if (link == nullptr) {
        return;
    }
    CATrace("Found....... URL \"%s\".\n", link);
    sink_->processFoundUrl(link, target->raisesDepth);
}
