#include "report/CAvary.h"

#include <algorithm>

#include "HTString.h"

namespace {

bool contains(const std::vector<std::string> &names, std::string_view name)
{
    return std::any_of(names.begin(), names.end(),
                       [name](const std::string &other) { return HTEqualsNoCase(other, name); });
}

bool isNameByte(char c)
{
    return HTIsDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
}

}  // namespace

void CAVaryCount::count(std::string_view vary)
{
    bool isAnyMissing = false;
    while (!vary.empty()) {
        isAnyMissing |= isMissing(HTTakeMember(&vary));
    }
    pages_ += isAnyMissing ? 1 : 0;
}

// Notes a name that is not sent. A page that varies by "*" has no copy that could be served; what
// it says about the host is always sent.
bool CAVaryCount::isMissing(std::string_view name)
{
    const bool isName = !name.empty() && name.size() <= kLongestName &&
                        std::all_of(name.begin(), name.end(), isNameByte);
    if (!isName || HTEqualsNoCase(name, "Host") || contains(sent_, name)) {
        return false;
    }
    if (missing_.size() < kMaxNames && !contains(missing_, name)) {
        missing_.emplace_back(name);
    }
    return true;
}

std::string CAVaryCount::names() const
{
    std::string text;
    for (const std::string &name : missing_) {
        text.append(text.empty() ? "" : ", ").append(name);
    }
    return text;
}

void CAVaryCount::restart()
{
    missing_.clear();
    pages_ = 0;
}
