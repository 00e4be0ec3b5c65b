#include "config/CAcheck.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "HTFile.h"
#include "HTString.h"
#include "config/CAcfg.h"
#include "config/CAcheckRead.h"
#include "config/CAcheckRules.h"
#include "config/CAcheckShow.h"
#include "config/CAcheckUser.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

namespace {

constexpr const char *kUsage =
    "Usage: refetchd-check [ options ... ] [ <proxy config file> ... ]\n"
    "       where options include:\n"
    "         -q    <warnings only>\n"
    "         -s    <every unknown directive is a mistake>\n"
    "         --help, --version\n"
    "       and those of refetchd: -r -vv -debug -rp -rps -mc\n";

// What the command line says.
struct Wanted {
    std::vector<const char *> files;
    bool isQuiet = false;
    const char *text = nullptr;  // to be printed instead of everything else
    bool isWrong = false;
};

// An option of the agent with a number: it sets a field until a line of the configuration does.
struct NumberOption {
    std::string_view option;
    std::string_view directive;
    std::int32_t CAConfig::*field;
};

constexpr NumberOption kNumberOptions[] = {
    {"-rp", "refetchdrepeat", &CAConfig::repeatCount},
    {"-rps", "refetchdrequestpersecond", &CAConfig::requestsPerSecond},
    {"-mc", "refetchdmaxconnection", &CAConfig::maxConnections},
};

// Applies an option of the agent that has a value; false when there is no such option.
bool applyOption(std::string_view option, const char *value, Wanted *wanted, CACheck *check)
{
    if (option == "-r") {
        wanted->isWrong |= *value == '-';
        wanted->files.push_back(value);
        return true;
    }
    for (const NumberOption &row : kNumberOptions) {
        if (row.option == option) {
            ac.*row.field = std::max(HTInteger(value), 0);
            check->found[row.directive] = {{row.option.data(), 0}, value};
            return true;
        }
    }
    return option == "-debug";
}

// Applies a word that stands alone; false when there is no such option.
bool applyWord(const char *word, const char *version, Wanted *wanted, CACheck *check)
{
    const std::string_view option(word);
    if (option == "-q") {
        wanted->isQuiet = true;
    } else if (option == "-s") {
        check->isStrict = true;
    } else if (option == "-vv") {
        check->found["catracelog"] = {{"-vv", 0}, "standard error"};
    } else if (option == "--help") {
        wanted->text = kUsage;
    } else if (option == "--version") {
        wanted->text = version;
    } else if (!option.starts_with('-')) {
        wanted->files.push_back(word);
    } else {
        return false;
    }
    return true;
}

Wanted readCommandLine(int argc, char **argv, const char *version, CACheck *check)
{
    Wanted wanted;
    for (int i = 1; i < argc; ++i) {
        if (applyWord(argv[i], version, &wanted, check)) {
            continue;
        }
        if (i + 1 < argc && applyOption(argv[i], argv[i + 1], &wanted, check)) {
            ++i;
        } else {
            wanted.isWrong = true;
        }
    }
    return wanted;
}

// Reads the named files, or the agent's default file when `names` is empty. False when the agent
// would not run with them.
bool load(CAConfig *config, CACheck *check, const std::vector<const char *> &names)
{
    if (names.empty()) {
        config->DetermineFilename(nullptr);
    }
    for (const char *const name : names) {
        const HeapString path(HTMakeAbsolutePath(name));
        config->DetermineFilename(path != nullptr ? path.get() : name);
    }
    const HTList *const files = config->configFiles->next;
    for (const HTList *entry = files; entry != nullptr; entry = entry->next) {
        check->refused |= !CAIsReadable(static_cast<const char *>(entry->object), "");
    }
    config->observer = check;
    const bool runs = !check->refused && files != nullptr &&
                      config->load(urlQueue, static_cast<const char *>(files->object)) != 0;
    config->observer = nullptr;
    return runs;
}

void showSeeds(const std::vector<const char *> &names)
{
    CAForgetAllProcessed();
    static CAConfig *const again = new CAConfig;  // it lives until the process ends, as `ac` does
    CACheck check;
    check.showsSeeds = true;
    static_cast<void>(load(again, &check, names));
}

void show(const CACheck &check, const std::vector<const char *> &names)
{
    std::puts("Settings");
    CAShowSettings(check);
    std::puts("\nPatterns");
    CAShowPatterns(check);
    std::puts("\nSeeds");
    showSeeds(names);
    std::puts("\nWarnings");
}

// Reads, judges and prints; returns the exit status.
int run(const Wanted &wanted, CACheck *check)
{
    const CAJudge judge = CAChooseJudge(wanted.files);
    const bool runs = load(&ac, check, wanted.files);
    if (check->refused) {
        return 1;
    }
    CAJudgeSettings(check, judge != CAJudge::Caller);
    if (!wanted.isQuiet) {
        if (judge == CAJudge::AsService) {
            std::printf("%s\n\n", kAsService);
        }
        show(*check, wanted.files);
    }
    CAShowFound(check->warnings);
    CAShowFound(check->notes);
    return std::fflush(stdout) == 0 && runs && check->warnings.empty() ? 0 : 1;
}

}  // namespace

int CACheckMain(int argc, char **argv, const char *version)
{
    CACheck check;
    const Wanted wanted = readCommandLine(argc, argv, version, &check);
    if (wanted.isWrong) {
        std::fputs(kUsage, stderr);
        return 1;
    }
    if (wanted.text != nullptr) {
        std::fputs(wanted.text, stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    return run(wanted, &check);
}
