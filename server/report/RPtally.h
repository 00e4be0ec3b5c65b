// Collects the figures of a report from the lines of the logs, in one pass. Memory is bounded,
// whatever the logs hold: by the nights of the report, and by limits for distinct hosts and reasons
// and for examples. One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "HTSipHash.h"
#include "RPentry.h"
#include "RPfigures.h"

class RPTally {
public:
    // A run without a line about its end is over after a pause of this length.
    static constexpr std::int64_t kPause = 3600 * std::int64_t{1000};

    // For the logs of `machines` and the last `nights` nights (at least 1). `now` is in seconds
    // since the epoch; lines more than two days later than that are not understood.
    RPTally(std::vector<std::string> machines, std::int32_t nights, std::int64_t now);

    // Adds a line of a log of this machine. Lines of one machine come roughly in the order of time;
    // those of several machines may come in any order. False if its time is in the future.
    [[nodiscard]] bool add(std::size_t machine, const RPEntry &entry);

    // Moves the figures out, once all lines were added. Those about reading the logs are not set.
    [[nodiscard]] RPFigures finish();

private:
    using Groups = std::map<std::pair<RPVerdict, std::string>, RPGroup, std::less<>>;

    [[nodiscard]] RPDay dayOf(std::int64_t milliseconds);
    [[nodiscard]] RPNight *nightOf(RPDay day);
    void beginNight(RPDay day);
    void addUrl(std::size_t machine, const RPEntry &entry);
    void addRequest(const RPEntry &entry);
    void addSlow(const RPEntry &entry);
    void addToRun(std::size_t machine, const RPEntry &entry);
    [[nodiscard]] bool isLate(std::size_t machine, const RPEntry &entry) const;
    void addToEndedRun(std::size_t machine, RPVerdict verdict);
    void addToGroup(Groups *groups, const RPEntry &entry, std::int64_t count);
    void endRun(RPRun run);
    RPHost &hostOf(std::string_view url);
    void finishDetails();

    const std::size_t kept_;  // nights
    const std::int64_t latestTime_;
    std::map<RPDay, RPNight> nights_;
    RPFigures figures_;
    std::vector<RPRun> open_;          // by machine; without a run its counts are 0
    std::vector<std::int64_t> ended_;  // by machine, when the last run with a line ended; 0: none
    std::vector<bool> seenLastNight_;  // by machine
    std::unordered_map<std::string, RPHost, HTKeyedHasher, std::equal_to<>> hosts_;
    Groups groups_;
    Groups drops_;
    std::map<std::int64_t, RPStatus> statuses_;
    std::int64_t dayKey_ = -1;  // the quarter of an hour whose day is `day_`
    RPDay day_ = 0;
};
