// The seeds of the lists, files with a URL a line that `loadlist` names.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "HTFile.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "config/CAlistLines.h"
#include "htthread.h"

namespace {

// How many bad lines of a list standard error names in a run. The trace names all of them.
constexpr std::int64_t kMostTold = 10;

// What came of a list.
struct Reading {
    std::int32_t seeds = 0;
    std::int64_t badLines = 0;
    std::int64_t firstBad = 0;  // number of the first bad line
    int error = 0;              // why the file cannot be opened, or not be read to its end
};

// Opens a list. Null with errno set when that is not possible; also, with an observer, for what is
// no regular file, because reading it would take what it holds from the agent.
FILE *openList(const CAConfig &config, const char *file)
{
    struct stat status {};
    if (config.observer != nullptr && stat(file, &status) == 0 && !S_ISREG(status.st_mode) &&
        !S_ISDIR(status.st_mode)) {
        errno = ESPIPE;
        return nullptr;
    }
    return HTOpenForReading(file);
}

void reportBadLine(const CAConfig &config, const char *name, const CAListLines &line,
                   Reading *reading)
{
    const std::string text = "line " + std::to_string(line.number()) + " " + line.fault() + ".";
    CATrace("List........ \"%s\": %s\n", name, text.c_str());
    if (++reading->badLines <= kMostTold) {
        config.tell(std::string(name) + ": " + text);
    }
    reading->firstBad = reading->firstBad == 0 ? line.number() : reading->firstBad;
}

Reading readList(CAConfig *config, CAQueue *queue, FILE *list, const char *name)
{
    CATrace("Loading..... URLs in list \"%s\".\n", name);
    Reading reading;
    CAListLines line(list);
    while (line.next()) {
        if (line.fault() != nullptr) {
            reportBadLine(*config, name, line, &reading);
        } else if (config->seedListUrl(queue, line.url())) {
            ++reading.seeds;
        }
    }
    reading.error = std::ferror(list) != 0 ? errno : 0;
    return reading;
}

// Reports what concerns the whole list.
void reportReading(const CAConfig &config, const std::string &name, const Reading &reading)
{
    std::string fault;
    if (reading.error != 0) {
        const char *const reason = HTStrerror(reading.error);
        CATrace("List........ \"%s\" cannot be read: %s.\n", name.c_str(), reason);
        fault = name + ": " + reason;
        config.tell(fault + ".");
    } else if (reading.badLines > 0) {
        fault = std::to_string(reading.badLines) + " bad lines in " + name +
                ", the first is line " + std::to_string(reading.firstBad);
    }
    if (reading.badLines > kMostTold) {
        const std::string more = std::to_string(reading.badLines - kMostTold);
        config.tell(name + ": " + more + " more lines are left out.");
    }
    if (config.observer != nullptr) {
        config.observer->listed(fault);
    }
}

}  // namespace

std::int32_t CAConfig::seedList(CAQueue *queue, const char *file)
{
    const bool isInput = std::strcmp(file, "-") == 0;
    if (isInput && (isInputRead || observer != nullptr)) {
        CATrace("List........ standard input is read only once.\n");
        return 0;
    }
    isInputRead |= isInput;
    const char *const name = isInput ? "standard input" : file;
    FILE *const list = isInput ? stdin : openList(*this, file);
    const Reading reading =
        list == nullptr ? Reading{.error = errno} : readList(this, queue, list, name);
    if (list != nullptr && !isInput) {
        std::fclose(list);
    }
    reportReading(*this, name, reading);
    return reading.seeds;
}
