#include "report/CAdropped.h"

#include <algorithm>
#include <functional>

std::uint64_t CADropped::keyOf(std::string_view url)
{
    static_assert(sizeof(std::size_t) == sizeof(std::uint64_t));
    return std::hash<std::string_view>()(url);
}

bool CADropped::add(std::uint64_t key, const Url &url)
{
    if (known_.find(key) != known_.end()) {
        return false;
    }
    if (urls_.size() >= kMostUrls || textBytes_ + url.text.size() > kMostText) {
        ++more_;
        return true;
    }
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
    textBytes_ += text.size();
    auto *const memory = static_cast<char *>(memory_.allocate(text.size(), 1));
    std::copy(text.begin(), text.end(), memory);
    return {memory, text.size()};
}
