// Reads all logs of a report. One thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "RPfigures.h"

// Reads the logs in the order of time, and collects the figures of their last `nights` nights. Logs
// whose names differ only in what rotation and compression append, such as results.log and
// results.log.2.gz, are those of one machine. `now` is in seconds since the epoch. Logs that cannot
// be read are in RPFigures::problems; `isRead` is true if at least one could be opened.
[[nodiscard]] RPFigures RPRead(const std::vector<std::string> &logs, std::int32_t nights,
                               std::int64_t now, bool *isRead);
