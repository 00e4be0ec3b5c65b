// Counts the pages that say "Vary:" and name a header which the agent does not send as visitors do:
// they get other copies than the one that was refreshed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// It has no lock: callers that share one between threads must lock it.
class CAVaryCount {
public:
    // The names of the headers with which the agent asks as visitors do. Its own Accept, and its
    // own User-Agent if nothing is configured, do not count, because no visitor sends the same.
    void setSent(std::vector<std::string> names) { sent_ = std::move(names); }

    // Takes the "Vary:" of one page into account.
    void count(std::string_view vary);

    // The pages with a name that is not sent; these names, with commas, at most kMaxNames.
    [[nodiscard]] std::int32_t pages() const { return pages_; }
    [[nodiscard]] std::string names() const;

    // Begins to count anew.
    void restart();

private:
    static constexpr std::size_t kMaxNames = 5;
    static constexpr std::size_t kLongestName = 64;

    bool isMissing(std::string_view name);

    std::vector<std::string> sent_;
    std::vector<std::string> missing_;
    std::int32_t pages_ = 0;
};
