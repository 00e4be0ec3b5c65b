// Keeps the URLs that a run dropped until the run ends: only then is it known which of them were
// requested after all, because another page leads to them or because they are seeds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory_resource>
#include <string_view>
#include <unordered_map>

#include "base/CAoutcome.h"
#include "base/CAwhen.h"

// The dropped URLs of one run; it cannot be copied. It has no lock: callers that share one between
// threads must lock it.
class CADropped {
public:
    // Limits that hostile pages cannot exceed: URLs in a run and bytes of the log for their texts,
    // and URLs of one page. Whatever is beyond is only counted.
    static constexpr std::size_t kMostUrls = 1000000;
    static constexpr std::size_t kMostText = std::size_t{64} << 20U;
    static constexpr std::int32_t kMostOfPage = 1000;

    struct Url {
        std::string_view text = {};  // as it is logged; ours
        std::size_t length = 0;      // of the whole URL
        std::int64_t time = 0;       // milliseconds since the epoch
        std::int32_t depth = 0;
        _source source = SOURCE_CONFIG;
        CADrop why = CADrop::None;  // None: it was requested after all
    };

    // What a URL is recognised by. Two URLs with the same key are taken for one: among a million
    // the odds of that are 1 to 37 million, and then a line of the log is missing, which is worth
    // less than the memory for whole URLs. Keys differ from process to process, so that a page
    // cannot contain URLs with equal keys on purpose. Any thread.
    [[nodiscard]] static std::uint64_t keyOf(std::string_view url);

    // Records a URL with the text that `url` has, unless it was dropped or requested before. False
    // in this case.
    bool add(std::uint64_t key, const Url &url);
    // Notes that a URL is requested, and so not dropped.
    void request(std::uint64_t key);

    // The URLs in the order in which they were dropped; how many more there were than are recorded.
    [[nodiscard]] const std::pmr::deque<Url> &urls() const { return urls_; }
    [[nodiscard]] std::int64_t more() const { return more_; }

private:
    std::string_view copy(std::string_view text);

    std::pmr::monotonic_buffer_resource memory_;
    std::pmr::deque<Url> urls_{&memory_};
    std::pmr::unordered_map<std::uint64_t, Url *> known_{&memory_};  // null: requested
    std::size_t quotedBytes_ = 0;
    std::int64_t more_ = 0;
};
