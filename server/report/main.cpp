// refetchd-report: makes a page about the last nights from results logs of the agent.
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "RPoutput.h"
#include "RPpage.h"
#include "RPread.h"

namespace {

constexpr char kUsage[] =
    "Usage: refetchd-report [-t] [-n NIGHTS] [-o FILE] LOG...\n"
    "  -t         write plain text instead of an HTML page\n"
    "  -n NIGHTS  show at most this number of nights (1 to 366, default 14)\n"
    "  -o FILE    replace this file; without it write to standard output\n"
    "  --help     print this text\n"
    "  --version  print the version\n"
    "LOG is a results log of refetchd, which may be compressed (gzip, xz, bzip2, zstd). \"-\" "
    "means\n"
    "standard input.\n";

constexpr int kWrongUsage = 2;
constexpr std::int32_t kMaxNights = 366;

struct Options {
    bool isText = false;
    std::int32_t nights = 14;
    std::string output;
    std::vector<std::string> logs;
};

// Prints a message; control characters, which a terminal would obey, become "?".
void report(std::string message)
{
    for (char &c : message) {
        c = c >= ' ' && c <= '~' ? c : '?';
    }
    std::fprintf(stderr, "refetchd-report: %s\n", message.c_str());
}

// True if all of `text` is a number of nights.
bool readNights(const char *text, std::int32_t *nights)
{
    const char *const end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, *nights);
    return error == std::errc() && stop == end && *nights >= 1 && *nights <= kMaxNights;
}

bool readOptions(int argc, char **argv, Options *options)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    for (int option = 0; (option = getopt(argc, argv, "tn:o:")) != -1;) {
        switch (option) {
        case 't': options->isText = true; break;
        case 'o': options->output = optarg; break;
        case 'n':
            if (!readNights(optarg, &options->nights)) {
                report(std::string("-n needs a number from 1 to 366, not ") + optarg);
                return false;
            }
            break;
        default: return false;
        }
    }
    options->logs.assign(argv + optind, argv + argc);
    return !options->logs.empty();
}

// The time of the report. SOURCE_DATE_EPOCH, by which builds are reproducible, sets another one.
std::int64_t timeNow()
{
    std::int64_t seconds = std::time(nullptr);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    if (const char *const set = std::getenv("SOURCE_DATE_EPOCH"); set != nullptr) {
        std::from_chars(set, set + std::strlen(set), seconds);
    }
    return seconds;
}

int makeReport(const Options &options)
{
    bool isRead = false;
    const RPFigures figures = RPRead(options.logs, options.nights, timeNow(), &isRead);
    for (const std::string &problem : figures.problems) {
        report(problem);
    }
    if (!isRead) {
        report("no log can be read");
        return EXIT_FAILURE;
    }
    const std::string problem =
        RPWrite(options.output, options.isText ? RPText(figures) : RPPage(figures));
    if (!problem.empty()) {
        report(problem);
    }
    return problem.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char **argv)
{
    const std::string first(argc > 1 ? argv[1] : "");
    if (first == "--help") {
        std::fputs(kUsage, stdout);
        return EXIT_SUCCESS;
    }
    if (first == "--version") {
        std::puts("refetchd-report " REFETCHD_VERSION);
        return EXIT_SUCCESS;
    }
    Options options;
    if (!readOptions(argc, argv, &options)) {
        std::fputs(kUsage, stderr);
        return kWrongUsage;
    }
    return makeReport(options);
}
