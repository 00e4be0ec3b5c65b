#include "CAstart.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>

#include "CArun.h"
#include "CAsignals.h"
#include "HTFile.h"
#include "HTInit.h"
#include "HTSocket.h"
#include "HTString.h"
#include "base/CAoutput.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "fetch/CAwork.h"
#include "htthread.h"
#include "refetchd.h"
#include "report/CAresults.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

namespace {

struct UsageLine {
    int number;
    const char *text;
};

// The options for tuning a run ("-debug", "-rp", "-rps", "-mc") are left out on purpose.
constexpr UsageLine kUsage[] = {
    {938, "Usage: refetchd [ options ... ]\n"},
    {939, "       where options include:\n"},
    {940, "         -r    <proxy config file>\n"},
    {941, "         -vv   <verbose mode>\n"},
};

HTLibraryConfig *libraryConfig = nullptr;

void ConfigManager_create(HTThreadContext *context, int /*slot*/)
{
    context->config = libraryConfig;
}

void ConfigManager_destroy(HTThreadContext * /*context*/, int /*slot*/) {}

}  // namespace

void Usage()
{
    ac.traceStream = stderr;
    for (const UsageLine &line : kUsage) {
        std::fputs(CAMessage(line.number, line.text), stderr);
    }
    std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread exists yet
}

void initNLS()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread exists yet
    if (const char *const path = std::getenv("KELP_LOCALES"); path != nullptr) {
        const std::size_t size = std::strlen(path) + sizeof("LOCPATH=");
        WWW_locpath = static_cast<char *>(std::malloc(size));
        if (WWW_locpath != nullptr) {
            std::snprintf(WWW_locpath, size, "LOCPATH=%s", path);
            putenv(WWW_locpath);  // NOLINT(concurrency-mt-unsafe): likewise
        }
    }
    const char *const locale = Locale_GetDefault();
    if (locale == nullptr) {
        std::snprintf(refetchd_LocaleString, sizeof(refetchd_LocaleString), "en_US");
    } else {
        Locale_ToString(locale, refetchd_LocaleString, sizeof(refetchd_LocaleString));
    }
}

void ConfigManager_init()
{
    libraryConfig = HTLibraryConfig_new();
    HTWorkThread_register("Cache agent config manager", ConfigManager_create,
                          ConfigManager_destroy);
}

namespace {

// Reads the command line, word by word. A missing value or an unknown option ends in Usage().
class CommandLine {
public:
    CommandLine(int argc, char **argv) : at_(argv + std::min(argc, 1)), end_(argv + argc) {}

    // Applies all options to `ac`. Returns the absolute path of the configuration file (a heap
    // string), or null when none was named.
    char *apply();

private:
    const char *value()
    {
        if (at_ == end_) {
            Usage();
        }
        return *at_++;
    }

    // Reads a count. All but a number above 0 gives 0, which means "no limit" or "for ever".
    std::int32_t count() { return std::max(HTInteger(value()), 0); }

    void applyConfigFile();

    char **at_;
    char **const end_;
    char *configPath_ = nullptr;
};

char *CommandLine::apply()
{
    while (at_ != end_) {
        const std::string_view option(*at_++);
        if (option == "-r") {
            applyConfigFile();
        } else if (option == "-debug") {
            ac.debugModule(value());
        } else if (option == "-vv") {
            ac.traceStream = stderr;
        } else if (option == "-rp") {
            ac.repeatCount = count();
        } else if (option == "-rps") {
            ac.requestsPerSecond = count();
        } else if (option == "-mc") {
            ac.maxConnections = count();
        } else {
            Usage();
        }
    }
    return configPath_;
}

void CommandLine::applyConfigFile()
{
    const char *const name = value();
    if (*name == '-') {
        Usage();
    }
    std::free(configPath_);
    configPath_ = HTMakeAbsolutePath(name);
    if (configPath_ == nullptr) {
        configPath_ = strdup(name);  // the working directory is gone: the name may still be found
    }
    ac.DetermineFilename(configPath_);
}

// Opens /dev/null for each standard stream that is closed. Otherwise a file or a connection would
// get its descriptor, and text for the stream would go there.
void occupyStandardStreams()
{
    int fd = -1;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        close(fd);
    }
}

// The terminate handler. The agent throws nothing, so only an operator new that found no memory
// leads here. No destructor needs to run: the finished pages are in the report's file already.
[[noreturn]] void endWithoutMemory()
{
    std::fputs("refetchd: out of memory.\n", stderr);
    CATellUnwritten();
    std::_Exit(1);
}

// Creates what reading a configuration needs: the locale, the queue, the table of processed URLs.
void prepareTables()
{
    initNLS();
    ConfigManager_init();
    urlQueue = new CAQueue(1);
    processedUrls = CANewProcessedUrls();
}

// Everything that has to exist before the command line is read.
HTThreadContext *initialize()
{
    CABeginRunTime();
    occupyStandardStreams();
    std::set_terminate(endWithoutMemory);
    HeapDebug_init();
    initializeCaseTables();
    HTInitAll(0, 0);
    HTThreadContext *const context = HTInitThd(3);
    HTBlockSignals();
    CAEndOnSignals();
    std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the file size limit then only fails
    prepareTables();
    updatetimeRep(0);
    return context;
}

// Descriptors for all but the worker threads: standard streams, logs, report, hits file, resolver.
constexpr rlim_t kOtherDescriptors = 16;

// Lowers ac.numClients, the number of worker threads, if there are too few descriptors for them and
// the limit cannot be raised. A worker thread without a descriptor would lose every URL it takes.
void fitClientsToDescriptors()
{
    rlimit limit{};
    if (ac.numClients < 1 || getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return;
    }
    const rlim_t each = ac.saveFiles != 0 ? 2 : 1;  // the connection, and the saved copy
    const rlim_t wanted = kOtherDescriptors + each * static_cast<rlim_t>(ac.numClients);
    if (limit.rlim_cur < wanted) {
        const rlim_t before = std::exchange(limit.rlim_cur, std::min(wanted, limit.rlim_max));
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            limit.rlim_cur = before;
        }
    }
    if (limit.rlim_cur < wanted) {
        const rlim_t left = limit.rlim_cur - std::min(limit.rlim_cur, kOtherDescriptors);
        const auto fitting = static_cast<std::int32_t>(std::max<rlim_t>(left / each, 1));
        CATrace("Clients..... %d file descriptors are too few for %d, downgrading to %d.\n",
                static_cast<int>(limit.rlim_cur), ac.numClients, fitting);
        ac.numClients = fitting;
    }
}

// Limits the requests at a time to each host, if a directive asks for it.
void limitHosts()
{
    if (ac.hostConnections > 0 || ac.latencyLimit > 0) {
        urlQueue->limitHosts({.connections = ac.hostConnections,
                              .clients = ac.numClients,
                              .latencyMillis = ac.latencyLimit});
    }
}

// Starts the master thread and waits for the end of all runs. If no thread can be created for it,
// the main thread does its work.
void runToTheEnd()
{
    const HTThreadHandle master = StartThread(run_loop, nullptr);
    if (master == 0) {
        run_loop(nullptr);
        return;
    }
    JoinThread(master);
}

}  // namespace

void CAPrepareToRead()
{
    HTInitAll(0, 0);
    HTInitThd(3);
    prepareTables();
}

int CAMain(int argc, char **argv)
{
    HTThreadContext *const context = initialize();
    const HeapString configPath(CommandLine(argc, argv).apply());
    if (ac.load(urlQueue, configPath.get()) == 0) {
        return 1;
    }
    if (ac.breadthFirst != 0) {
        urlQueue->orderByDepth(ac.breadthWait);
    }
    fitClientsToDescriptors();
    limitHosts();
    HTSocketQueue_init(ac.numClients);
    CABlockSignals(results.isLogged());
    if (CAStartWorkers() == 0 && ac.numClients > 0) {
        std::fprintf(stderr, "refetchd: no client thread could be started.\n");
        return 1;  // nothing would be requested, and the run might never end
    }
    runToTheEnd();
    HTEndThd(3, context);
    return CARunStatus();
}
