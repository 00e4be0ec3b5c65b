#include "base/CAtrace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "HTMessages.h"

FILE *g_ca_trace = nullptr;
FILE *g_ca_errorlog = nullptr;

namespace {

constexpr int kCatalogueSet = 4;
constexpr int kCatalogueKey = 1;

}  // namespace

void CATraceLine(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    std::vfprintf(g_ca_trace, format, args);
    va_end(args);
}

const char *CAMessage(int number, const char *fallback)
{
    return nlsGetString(kCatalogueSet, kCatalogueKey, number, fallback);
}

void CAErrorLog(int message, const char *fallback, const char *argument)
{
    if (g_ca_errorlog == nullptr || g_ca_trace == nullptr) {
        return;
    }
    // The text may come from a catalogue file, so it is never used as a printf format.
    const char *const text = CAMessage(message, fallback);
    const char *const place = argument == nullptr ? nullptr : std::strstr(text, "%s");
    if (place == nullptr) {
        std::fputs(text, g_ca_errorlog);
    } else {
        std::fprintf(g_ca_errorlog, "%.*s%s%s", static_cast<int>(place - text), text, argument,
                     place + 2);
    }
    std::fflush(g_ca_errorlog);
}
