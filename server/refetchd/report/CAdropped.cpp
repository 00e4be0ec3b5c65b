#include "report/CAdropped.h"

#include <algorithm>

#include "HTSipHash.h"
#include "report/CAjson.h"

std::uint64_t CADropped::keyOf(std::string_view url)
{
    return HTKeyedHash(url);
}

bool CADropped::add(std::uint64_t key, const Url &url)
{
    if (known_.find(key) != known_.end()) {
        return false;
    }
    const std::size_t quoted = CAQuotedLength(url.text);
    if (urls_.size() >= kMostUrls || quotedBytes_ + quoted > kMostText) {
        ++more_;
        return true;
    }
    quotedBytes_ += quoted;
    urls_.push_back(url);
    urls_.back().text = copy(url.text);
    known_.emplace(key, &urls_.back());
    return true;
}

void CADropped::request(std::uint64_t key)
{
    const auto [known, isNew] = known_.try_emplace(key, nullptr);
    if (!isNew && known->second != nullptr) {
        known->second->why = CADrop::None;
        known->second = nullptr;
    }
}

std::string_view CADropped::copy(std::string_view text)
{
    if (text.empty()) {
        return {};
    }
    auto *const memory = static_cast<char *>(memory_.allocate(text.size(), 1));
    std::copy(text.begin(), text.end(), memory);
    return {memory, text.size()};
}
