#include "CAparseHTML.h"

#include <strings.h>

#include <cctype>
#include <cstring>
#include <string_view>

#include "CAparseBinary.h"
#include "CAtrace.h"

namespace {

// A tag that carries a link. Its name is followed by a blank: a name before a tab or a
// line feed is not found.
struct Target {
    std::string_view tag;
    const char *attribute;
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

const Target *targetOf(const char *text)
{
    for (const Target &target : Targets) {
        if (strncasecmp(text, target.tag.data(), target.tag.size()) == 0) {
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

// The value of an attribute whose "=" was stepped over, cut off in place; null when it has no end.
// An unquoted value at the very end of a tag that was scanned in its block has none: its ">" is a
// NUL already.
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

// The value of the first `attribute` in the text of a tag, wherever it stands; null without one.
char *valueOf(const char *attribute, char *text)
{
    char *const found = strcasestr(text, attribute);
    if (found == nullptr) {
        return nullptr;
    }
    char *const equals = skipSpace(found + std::strlen(attribute));
    return *equals == '=' ? cutValue(equals + 1) : nullptr;
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

CAParseHTML::CAParseHTML(CAURL *url) : CAParser(url)
{
    commonInit();
}

CAParseHTML::CAParseHTML(CAURL *url, HTThreadContext *threadContext) : CAParser(url, threadContext)
{
    commonInit();
}

void CAParseHTML::commonInit()
{
    if (ac.saveFiles == 0 || ac.saveRoot == nullptr) {
        return;
    }
    CATrace("Adding...... new binary-parser for URL \"%s\".\n", url_->stringitize());
    addSink(new CAParseBinary(url_));
}

CAParseHTML::~CAParseHTML()
{
    if (sink_ != nullptr) {
        CATrace("CAParseHTML. deleting its sink.\n");
        addSink(nullptr);
    }
}

std::int32_t CAParseHTML::consume(char *data, std::int32_t length, std::int32_t *finished,
                                  std::int32_t *closeConnection)
{
    if (data == nullptr || length <= 0) {
        return 0;
    }
    if (sink_ != nullptr) {
        CATrace("HTML........ parser sending %u bytes to its sink.\n",
                static_cast<unsigned>(length));
        sink_->consume(data, length, finished, closeConnection);
    }
    if (wantsLinks()) {
        scan(data, data + length);
    }
    return length;
}

bool CAParseHTML::wantsLinks() const
{
    if (ac.delveInto == NEVER && ac.loadInlineImages == 0) {
        return false;
    }
    if (CAMatchWhen(ac.delveInto, url_->source()) == 0) {
        CATrace("HTMLconsume. Don't delve off of URL: \"%s\".\n", url_->stringitize());
        return false;
    }
    if (queueIsFull()) {
        CATrace("HTMLconsume. Bailing 'cause queue is full.\n");
        return false;
    }
    if (urlLimitIsReached()) {
        CATrace("HTMLconsume. Bailing 'cause we hit max #URLs.\n");
        return false;
    }
    return true;
}

void CAParseHTML::scan(char *data, char *end)
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

// Ends the pending tag with what the block brings for it. Returns where the scan begins.
char *CAParseHTML::finishPending(char *data, char *end)
{
    char *const open = find(data, end, '<');
    const char *const close = find(data, end, '>');
    if (close == nullptr) {
        queueUp(data, static_cast<std::size_t>(end - data));
        return data;
    }
    if (open != nullptr && open < close) {
        reassemblyLength_ = 0;  // another tag begins before this one has ended
        return open;
    }
    parsePending(data, static_cast<std::size_t>(close + 1 - data));
    return data;  // what belonged to the tag holds no "<"
}

void CAParseHTML::queueUp(const char *data, std::size_t length)
{
    if (reassemblyLength_ + length < kReassemblySize - 1) {
        std::memcpy(&reassembly_[reassemblyLength_], data, length);
        reassemblyLength_ += length;
        reassembly_[reassemblyLength_] = '\0';
        CATrace("HTML........ parser queueing up another %u bytes.\n", count(length));
        return;
    }
    reassemblyLength_ = 0;  // before the message, which therefore counts 0 bytes buffered
    CATrace(
        "HTML........ parser giving up on reassembly (%u buffered + %u incoming with no end in "
        "sight).\n",
        count(reassemblyLength_), count(length));
}

void CAParseHTML::parsePending(const char *piece, std::size_t length)
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

void CAParseHTML::bufferIncomplete(const char *tag, std::size_t length, std::size_t offset)
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

// `tag` points at the "<" of a text that ends in a NUL, and is cut up.
void CAParseHTML::parseTag(char *tag)
{
    char *const text = skipSpace(tag + 1);
    const Target *const target = targetOf(text);
    if (target == nullptr) {
        return;
    }
    if (target->isImage && ac.loadInlineImages == 0) {
        CATrace("HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n");
        return;
    }
    const char *const link = valueOf(target->attribute, skipSpace(text + target->tag.size()));
    if (link == nullptr) {
        return;
    }
    CATrace("Found....... URL \"%s\".\n", link);
    processFoundUrl(link, target->raisesDepth);
}

void CAParseHTML::processFoundUrl(const char *link, bool raisesDepth)
{
    if (queueIsFull()) {
        CATrace("Ignoring.... relative URL \"%s\" (queue full).\n", link);
        return;
    }
    if (urlLimitIsReached()) {
        CATrace("Ignoring.... relative URL \"%s\" (hit max #URLs).\n", link);
        return;
    }
    CAURL *const found = resolveFound(link);
    if (raisesDepth) {
        found->setDepth(found->depth() + 1);
    }
    takeIfInteresting(found);
}
