#include "parse/CAwholeTag.h"

#include <cstring>

#include "HTString.h"

namespace {

constexpr HTCharacterSet kSpace(" \t\n\f\r");
constexpr HTCharacterSet kEndsName(" \t\n\f\r/>=");
constexpr HTCharacterSet kEndsValue(" \t\n\f\r>");

// Walks through a tag. Every step ends at the end of the block at the latest.
class Reader {
public:
    Reader(const CAModernTag &tag, const char *at, const char *end)
        : attributes_(tag), at_(at), end_(end)
    {
    }

    CAWholeTag read()
    {
        for (;;) {
            skipSpace();
            if (at_ == end_) {
                return {};
            }
            if (*at_ == '>') {
                tag_.end = at_;
                return tag_;
            }
            tag_.isClosed = *at_ == '/' && end_ - at_ > 1 && at_[1] == '>';
            if (*at_ == '/') {
                ++at_;
            } else {
                readAttribute();
            }
        }
    }

private:
    void skipSpace()
    {
        while (at_ != end_ && kSpace.has(*at_)) {
            ++at_;
        }
    }

    // Passes bytes up to one of the set.
    std::string_view passTo(const HTCharacterSet &set, const char *begin)
    {
        while (at_ != end_ && !set.has(*at_)) {
            ++at_;
        }
        return {begin, static_cast<std::size_t>(at_ - begin)};
    }

    // Reads a name, of which any byte can be the first, and its value.
    void readAttribute()
    {
        const char *const begin = at_++;
        const CAModernAttribute *const attribute = attributes_.take(passTo(kEndsName, begin));
        skipSpace();
        if (at_ == end_ || *at_ != '=') {
            return;
        }
        ++at_;
        skipSpace();
        const std::string_view text = readValue();
        if (attribute != nullptr) {
            tag_.values[tag_.count++] = {attribute, text};
        }
    }

    std::string_view readValue()
    {
        if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) {
            return passTo(kEndsValue, at_);
        }
        const char *const begin = at_ + 1;
        const auto left = static_cast<std::size_t>(end_ - begin);
        const void *const quote = std::memchr(begin, *at_, left);
        if (quote == nullptr) {
            at_ = end_;
            return {};
        }
        at_ = static_cast<const char *>(quote) + 1;
        return {begin, static_cast<std::size_t>(at_ - 1 - begin)};
    }

    CAModernAttributes attributes_;
    CAWholeTag tag_;
    const char *at_;
    const char *const end_;
};

}  // namespace

CAWholeTag CAReadWholeTag(const CAModernTag &tag, const char *at, const char *end)
{
    return Reader(tag, at, end).read();
}
