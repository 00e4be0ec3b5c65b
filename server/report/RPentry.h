// Reads a line of the agent's results log, which is a JSON object. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "RPverdict.h"

// What a line holds. The texts are valid until the next line is read, and are valid UTF-8.
struct RPEntry {
    std::int64_t time = -1;  // milliseconds since the epoch
    // Of a URL.
    std::string_view url = {};
    std::string_view why = {};
    RPVerdict verdict = RPVerdict::Unknown;
    std::int64_t status = 0;
    std::int64_t bytes = 0;
    std::int64_t milliseconds = 0;
    std::int64_t cut = 0;   // the full length of a URL that was cut; 0: it is complete
    std::int64_t more = 0;  // above 0: stands for this number of dropped links of the page
                            // `url`, or of the run if `url` is empty
    // Of the end of a run, when `seconds` is not below 0; `time` is its start.
    std::int64_t seconds = -1;
    std::int64_t left = 0;  // URLs in its queue
    bool stopped = false;   // by a signal

    [[nodiscard]] bool isRun() const { return seconds >= 0; }
};

class RPEntryReader {
public:
    // Readable bytes that a line must have behind its end, whatever they hold.
    static constexpr std::size_t kPadding = 64;

    RPEntryReader();
    ~RPEntryReader();
    RPEntryReader(const RPEntryReader &) = delete;
    RPEntryReader &operator=(const RPEntryReader &) = delete;

    // Reads `line`, which has no line end. False if it is no line of a results log; `entry` is
    // undefined then. Unknown keys are ignored, and numbers are never negative afterwards, except
    // as stated above.
    [[nodiscard]] bool read(std::string_view line, RPEntry *entry);

private:
    struct Parser;
    std::unique_ptr<Parser> parser_;
};
