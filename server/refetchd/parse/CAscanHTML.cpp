#include "parse/CAscanHTML.h"

#include <bit>
#include <cstdint>
#include <cstring>
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

// For each byte, one bit for every target whose name begins with it, in either case. Most tags of a
// page are no targets, and this rules them out quickly.
using TargetSet = std::uint16_t;

consteval std::array<TargetSet, 256> targetsByLetter()
{
    std::array<TargetSet, 256> sets{};
    for (std::size_t c = 0; c < sets.size(); ++c) {
        for (std::size_t i = 0; i < Targets.size(); ++i) {
            const bool begins = Targets[i].tag.front() == HTLower(static_cast<char>(c));
            sets[c] = static_cast<TargetSet>(sets[c] | (begins ? 1U << i : 0U));
        }
    }
    return sets;
}

constexpr std::array<TargetSet, 256> kTargetsByLetter = targetsByLetter();

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

const Target *targetOf(const char *text)
{
    TargetSet set = kTargetsByLetter[static_cast<unsigned char>(*text)];
    for (; set != 0; set = static_cast<TargetSet>(set & (set - 1))) {
        const Target &target = Targets[static_cast<std::size_t>(std::countr_zero(set))];
        if (begins(text, target.tag)) {
            return &target;
        }
    }
    return nullptr;
}

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

char *skipSpace(char *text)
{
    while (isSpace(*text)) {
        ++text;
    }
    return text;
}

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
        end = std::strpbrk(text, " \t\r\n>");
    }
    if (end == nullptr) {
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
    for (; *text != '\0'; ++text) {
        if (begins(text, attribute)) {
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

unsigned count(std::size_t length)
{
    return static_cast<unsigned>(length);
}

}  // namespace

void CAScanHTML::scan(char *data, char *end)
{
    char *at = reassemblyLength_ != 0 ? finishPending(data, end) : data;
    while (char *const tag = find(at, end, '<')) {
        char *const close = find(tag, end, '>');
        if (close == nullptr) {
            bufferIncomplete(tag, static_cast<std::size_t>(end - tag),
                             static_cast<std::size_t>(tag - data));
            return;
        }
        *close = '\0';
        parseTag(tag);
        at = close + 1;
    }
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
        parseTag(reassembly_.data());
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

// `tag` points at the "<" of a text that ends in a NUL. NULs are written into the text.
void CAScanHTML::parseTag(char *tag)
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
    const char *const link = valueOf(target->attribute, skipSpace(text + target->tag.size()));
    if (link == nullptr) {
        return;
    }
    CATrace("Found....... URL \"%s\".\n", link);
    sink_->processFoundUrl(link, target->raisesDepth);
}
