#include "config/CAnearest.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "config/CAdirectives.h"

namespace {

// True when at most `edits` edits turn one name into the other. An edit inserts, removes or
// replaces a letter, or swaps two neighbours.
bool isNear(std::string_view a, std::string_view b, int edits)
{
    while (!a.empty() && !b.empty() && a[0] == b[0]) {
        a.remove_prefix(1);
        b.remove_prefix(1);
    }
    if (edits == 0 || (a.empty() && b.empty())) {
        return a.empty() && b.empty();
    }
    const std::string_view restOfA = a.substr(a.empty() ? 0 : 1);
    const std::string_view restOfB = b.substr(b.empty() ? 0 : 1);
    const bool swapped = a.size() > 1 && b.size() > 1 && a[0] == b[1] && a[1] == b[0];
    return isNear(restOfA, restOfB, edits - 1) || isNear(restOfA, b, edits - 1) ||
           isNear(a, restOfB, edits - 1) ||
           (swapped && isNear(a.substr(2), b.substr(2), edits - 1));
}

struct OtherName {
    std::string_view name;
    std::string_view directive;
};

// Options of the agent, words that its documents use, and names that other programs give to the
// same setting.
constexpr OtherName kOtherNames[] = {
    {"rp", "refetchdrepeat"},
    {"rps", "refetchdrequestpersecond"},
    {"rate", "refetchdrequestpersecond"},
    {"requestspersecond", "refetchdrequestpersecond"},
    {"mc", "refetchdmaxconnection"},
    {"connections", "refetchdmaxconnection"},
    {"retry", "retries"},
    {"timeout", "readtimeout"},
    {"depth", "delvedepth"},
    {"level", "delvedepth"},
    {"threads", "numclients"},
    {"workers", "numclients"},
    {"proxy", "updateproxy"},
    {"url", "loadurl"},
    {"seed", "loadurl"},
    {"hits", "loadtopcached"},
    {"topn", "loadtopcached"},
    {"exclude", "ignoreurl"},
    {"reject", "ignoreurl"},
    {"include", "configfile"},
    {"accept", "onlyurl"},
    {"log", "resultslog"},
};

constexpr std::size_t kLongName = 8;

}  // namespace

std::string_view CANearName(std::string_view name)
{
    for (const CADirective &row : CADirectives()) {
        if (isNear(name, row.name, row.name.size() < kLongName ? 1 : 2)) {
            return row.name;
        }
    }
    return {};
}

std::string_view CANearestName(std::string_view name)
{
    constexpr std::size_t kLeast = 4;
    const auto *const other =
        std::find_if(std::begin(kOtherNames), std::end(kOtherNames),
                     [name](const OtherName &row) { return row.name == name; });
    if (other != std::end(kOtherNames)) {
        return other->directive;
    }
    if (const std::string_view near = CANearName(name); !near.empty()) {
        return near;
    }
    const std::span<const CADirective> rows = CADirectives();
    const auto row = std::find_if(rows.begin(), rows.end(), [name](const CADirective &r) {
        const std::string_view brief =
            std::min(name, r.name, [](auto a, auto b) { return a.size() < b.size(); });
        const std::string_view whole = brief.data() == name.data() ? r.name : name;
        return brief.size() >= kLeast && whole.find(brief) != whole.npos;
    });
    return row != rows.end() ? row->name : std::string_view{};
}
