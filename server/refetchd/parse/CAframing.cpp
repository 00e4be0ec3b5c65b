#include "parse/CAframing.h"

#include <charconv>

#include "HTString.h"

namespace {

// Calls `take` for each member of a list.
template <typename Take>
void forEachMember(std::string_view list, Take take)
{
    while (!list.empty()) {
        take(HTTakeMember(&list));
    }
}

// The number, all of which must be digits; -1 if not, or when it is too large.
std::int64_t numberIn(std::string_view text)
{
    std::int64_t number = -1;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const bool isNumber = error == std::errc() && stop == end && text.front() != '-';
    return isNumber ? number : -1;
}

}  // namespace

void CAFraming::add(std::string_view name, std::string_view value)
{
    if (HTEqualsNoCase(name, "Content-Length")) {
        addLengths(value);
    } else if (HTEqualsNoCase(name, "Transfer-Encoding")) {
        addTransferCodings(value);
    } else if (HTEqualsNoCase(name, "Connection")) {
        addConnectionOptions(value);
    }
}

// The same length may be given several times, because some senders repeat the field.
void CAFraming::addLengths(std::string_view value)
{
    hasBadLength_ = hasBadLength_ || value.empty();
    forEachMember(value, [this](std::string_view member) {
        const std::int64_t length = numberIn(member);
        hasBadLength_ = hasBadLength_ || length < 0 || (length_ >= 0 && length != length_);
        length_ = length;
    });
}

void CAFraming::addTransferCodings(std::string_view value)
{
    isTransferCoded_ = true;
    forEachMember(value, [this](std::string_view member) {
        endsInChunks_ = member.empty() ? endsInChunks_ : HTEqualsNoCase(member, "chunked");
    });
}

void CAFraming::addConnectionOptions(std::string_view value)
{
    forEachMember(value, [this](std::string_view member) {
        asksToClose_ = asksToClose_ || HTEqualsNoCase(member, "close");
        asksToKeep_ = asksToKeep_ || HTEqualsNoCase(member, "keep-alive");
    });
}

bool CAFraming::decide(std::int32_t status, bool isKeptByDefault)
{
    constexpr std::int32_t kNoContent = 204;
    constexpr std::int32_t kNotModified = 304;
    if (status == kNoContent || status == kNotModified) {
        body_ = Body::None;
    } else if (isTransferCoded_) {
        body_ = endsInChunks_ ? Body::Chunked : Body::UntilClose;
    } else if (hasBadLength_) {
        return false;
    } else if (length_ < 0) {
        body_ = Body::UntilClose;
    } else {
        body_ = length_ == 0 ? Body::None : Body::Length;
    }
    // A sender of HTTP/1.0 does not know transfer codings, so its chunks may end elsewhere.
    const bool isDoubtful = isTransferCoded_ && !isKeptByDefault;
    keepsConnection_ = !asksToClose_ && (isKeptByDefault || asksToKeep_) && !isDoubtful &&
                       body_ != Body::UntilClose;
    return true;
}
