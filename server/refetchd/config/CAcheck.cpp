#include "config/CAcheck.h"

#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "HTFile.h"
#include "HTString.h"
#include "config/CAcfgLines.h"
#include "config/CAdirectives.h"
#include "url/CAURL.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

namespace {

// A line of a configuration file; no line when `file` is null.
struct Place {
    const char *file = nullptr;
    int line = 0;
};

std::string textOf(const Place &at)
{
    return std::string(at.file) + ":" + std::to_string(at.line);
}

// Writes a line. All but printable ASCII is escaped, because configurations and hits files may
// contain control sequences for terminals.
void put(const std::string &line, FILE *stream = stdout)
{
    for (const char c : line) {
        if (c >= ' ' && c <= '~') {
            std::fputc(c, stream);
        } else {
            std::fprintf(stream, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        }
    }
    std::fputc('\n', stream);
}

void putRow(std::string_view name, const std::string &value, const std::string &from)
{
    constexpr std::size_t kName = 25;
    constexpr std::size_t kValue = 24;
    std::string row(name);
    row.resize(kName, ' ');
    row += value + " ";
    row.resize(std::max(row.size(), kName + kValue), ' ');
    put(row + from);
}

// True when the file is readable and a regular file, because it is read twice. Otherwise prints why
// not, followed by `from`.
bool isReadable(const std::string &name, const std::string &from)
{
    struct stat status = {};
    const int error = stat(name.c_str(), &status) != 0 || access(name.c_str(), R_OK) != 0 ? errno
                      : S_ISREG(status.st_mode)                                           ? 0
                      : S_ISDIR(status.st_mode)                                           ? EISDIR
                                                                                          : ESPIPE;
    if (error != 0) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
        put("refetchd-check: " + name + ": " + std::strerror(error) + from, stderr);
    }
    return error == 0;
}

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

// A setting or a warning.
struct Found {
    Place at;
    std::string text;
    const CADirective *row = nullptr;
};

// Collects, in the first reading, the settings with the lines that set them, and the warnings. In
// the second reading it only prints the seeds.
struct Check : CAConfigObserver {
    void directive(const char *file, CAConfigLines *line, const CADirective *row) override;
    void skipped(CASkip why, const char *file, int number, const char *word) override;
    void seed(const CAURL &url, CADrop why) override;
    // Adds a warning about the current line, unless `fault` is empty.
    void warn(std::string_view name, const std::string &fault);
    [[nodiscard]] CAArgumentVerdict judge(CAArgument argument, CAConfigLines *line);
    void suggest(std::string_view name);

    Place at;                                 // the current line
    std::map<std::string_view, Found> found;  // by directive, the last line that set it
    std::vector<Found> several;               // lines of directives that add up, all of them
    std::vector<Found> warnings;
    Place allHosts;  // the first limit for all hosts
    std::int64_t seeds = 0;
    std::int64_t badHits = 0;  // malformed lines of the hits file
    bool refused = false;      // a file cannot be read
    bool showsSeeds = false;   // this is the second reading
};

// True when a `maxhosturls` line applies to all hosts: it has no pattern, or an empty one.
bool isForAllHosts(const CAConfigLines &line)
{
    bool forAll = line.count() == 2;
    for (int i = 2; i < line.count(); ++i) {
        forAll = forAll || *line.word(i) == '\0';
    }
    return forAll;
}

// Judges a line by its arguments and by the lines above it.
CAArgumentVerdict Check::judge(CAArgument argument, CAConfigLines *line)
{
    if (argument == CAArgument::ConfigFile) {
        refused |= !isReadable(line->word(1), " (configfile, " + textOf(at) + ")");
    } else if (argument == CAArgument::Queries && ac.cacheAllQueries != 0) {
        return {"no effect: a line above allows all queries", false};
    } else if (argument == CAArgument::HostLimit && allHosts.file != nullptr) {
        return {"no effect: " + textOf(allHosts) + " applies to all hosts", false};
    } else if (argument == CAArgument::Variant && ac.variants.size() >= kMaxVariants) {
        return {"no effect: there are " + std::to_string(kMaxVariants) + " variants above", false};
    } else if (argument == CAArgument::HostLimit && isForAllHosts(*line)) {
        allHosts = at;
    }
    return CAJudgeArgument(argument, line);
}

void Check::warn(std::string_view name, const std::string &fault)
{
    if (!fault.empty()) {
        warnings.push_back({at, std::string(name) + ": " + fault});
    }
}

void Check::directive(const char *file, CAConfigLines *line, const CADirective *row)
{
    at = {file, line->number()};
    if (showsSeeds) {
        return;
    }
    if (row == nullptr) {
        return suggest(line->directive());
    }
    const CAArgumentVerdict verdict = judge(row->takes, line);
    if (line->hasOpenQuote()) {
        warn(row->name, "a quote is not closed and counts as an ordinary character");
    }
    warn(row->name, verdict.fault);
    if (!verdict.sets || row->takes == CAArgument::Seed) {
        return;
    }
    const Found setting{at, CAJoinWords(*line, 1), row};
    if (CAAddsUp(row->takes)) {
        several.push_back(setting);
    } else {
        found[row->meaning.empty() ? row->name : row->meaning] = setting;
    }
}

void Check::skipped(CASkip why, const char *file, int number, const char *word)
{
    if (showsSeeds) {
        return;
    }
    switch (why) {
    case CASkip::Alone: {
        std::string name = word;
        standardize(name.data());
        name.resize(std::strlen(name.data()));
        if (CAFindDirective(name) != nullptr) {
            warnings.push_back({{file, number}, name + ": no argument"});
        }
        break;
    }
    case CASkip::Unclosed:
        warnings.push_back(
            {{file, number}, "this block has no closing \"}\": all lines below are ignored"});
        break;
    case CASkip::BadHits: ++badHits; break;
    }
}

// Warns of a name that is almost that of a directive. Other unknown names may be the proxy's.
void Check::suggest(std::string_view name)
{
    constexpr std::size_t kLongName = 8;
    for (const CADirective &row : CADirectives()) {
        if (isNear(name, row.name, row.name.size() < kLongName ? 1 : 2)) {
            warnings.push_back({at, CAQuoted(name) + " is not a directive: is " +
                                        std::string(row.name) + " meant?"});
            return;
        }
    }
}

void Check::seed(const CAURL &url, CADrop why)
{
    const bool configured = url.source() == SOURCE_CONFIG;
    if (showsSeeds) {
        const std::string from = configured
                                     ? "loadurl, " + textOf(at)
                                     : std::to_string(url.hits()) + " hits, " + g_ca_hits_filename;
        put((why == CADrop::None ? "ask   " : "skip  ") + std::string(url.stringitize()) + "   " +
            (why == CADrop::None ? "" : std::string(CADropName(why)) + "   ") + "(" + from + ")");
    } else if (why == CADrop::None) {
        ++seeds;
    } else if (configured) {
        warnings.push_back(
            {at, "loadurl: no cachequeries line above allows " + CAQuoted(url.stringitize())});
    }
}

// What is wrong with the hits file; empty: nothing.
std::string hitsFault()
{
    struct stat status = {};
    const std::string file = g_ca_hits_filename != nullptr ? g_ca_hits_filename : "";
    if (ac.caching != ALWAYS || file.empty()) {
        return ac.caching != ALWAYS ? "needs caching always" : "needs serverroot";
    }
    if (stat(file.c_str(), &status) != 0 || access(file.c_str(), R_OK) != 0) {
        return file + ": " + std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): likewise
    }
    return status.st_size == 0 ? file + " is empty" : "";
}

// What is wrong with a line that sets request headers.
std::string headerFault(const Found &line)
{
    constexpr std::string_view kEncoding = "accept-encoding";
    const char *const text = line.text.c_str();
    const bool isCoded = line.row->takes == CAArgument::Header
                             ? strncasecmp(text, kEncoding.data(), kEncoding.size()) == 0
                             : strcasestr(text, kEncoding.data()) != nullptr;
    const bool delves = ac.delveDepth > 0 && !ac.parseOptions.modernLinks;
    return isCoded && delves ? "no links are found in compressed pages without modernlinks on" : "";
}

// A mistake that shows only in the settings together.
struct Rule {
    std::string_view name;
    bool (*breaks)();
    const char *fault;
};

// True when `updateproxy` is an IPv6 address without brackets, or its bracket is not closed.
bool hasBareAddress()
{
    const std::string_view proxy = ac.updateProxy != nullptr ? ac.updateProxy : "";
    in6_addr ignored{};
    return inet_pton(AF_INET6, proxy.data(), &ignored) == 1 ||
           (proxy.starts_with('[') && proxy.find(']') == proxy.npos);
}

constexpr Rule kRules[] = {
    {"updateproxy",
     [] { return ac.updateProxy == nullptr || (*ac.updateProxy == ':' && !hasBareAddress()); },
     "no proxy is known"},
    {"updateproxy", [] { return hasBareAddress(); },
     "an IPv6 address must be in brackets, such as [::1]:3128"},
    {"numclients", [] { return ac.numClients < 1; },
     "below 1 there are no worker threads: nothing will be requested"},
    {"readtimeout", [] { return ac.readTimeout < 1; },
     "below 1 second the agent does not wait for any answer"},
    {"refetchdrepeat", [] { return ac.repeatCount != 1 && ac.maxRuntime == 0; },
     "needs maxruntime, or runs follow each other without a pause"},
    {"proxytlsca", [] { return ac.proxyTlsCa != nullptr && ac.proxyTls == 0; },
     "needs proxytls on"},
    {"proxytlsverify", [] { return ac.proxyTlsVerify == 0 && ac.proxyTls == 0; },
     "needs proxytls on"},
    {"proxytlsverify", [] { return ac.proxyTlsVerify == 0 && ac.proxyTls != 0; },
     "certificates are not verified: anybody may pose as the proxy"},
    {"slf", [] { return ac.saveFiles != 0 && ac.saveRoot == nullptr; }, "needs slr"},
    {"connecttohost", [] { return ac.connectToHost != 0 && ac.transparentProxy == 0; },
     "needs transparentproxy on"},
};

// Adds the warnings that need the whole configuration.
void finish(Check *check)
{
    const auto warn = [check](const char *name, const Found &found, const std::string &fault) {
        if (!fault.empty()) {
            check->warnings.push_back({found.at, std::string(name) + ": " + fault});
        }
    };
    for (const Rule &rule : kRules) {
        warn(rule.name.data(), check->found[rule.name], rule.breaks() ? rule.fault : "");
    }
    for (const Found &line : check->several) {
        const CAArgument takes = line.row->takes;
        const bool isHeader = takes == CAArgument::Header || takes == CAArgument::Variant;
        warn(line.row->name.data(), line, isHeader ? headerFault(line) : "");
    }
    if (ac.proxyTls != 0) {
        warn("proxytlsca", check->found["proxytlsca"], ac.setUpTls());
    }
    const Found &top = check->found["loadtopcached"];
    warn("loadtopcached", top, HTInteger(top.text) > 0 ? hitsFault() : "");
    if (check->badHits > 0) {
        warn("loadtopcached", top,
             std::to_string(check->badHits) + " bad lines in " + g_ca_hits_filename);
    }
    const char *const report = g_catrace_filename;
    warn("serverroot", check->found["serverroot"], report != nullptr ? CAUnwritable(report) : "");
    warn("loadurl", {}, check->seeds == 0 ? "no seeds: nothing will be requested" : "");
}

// Prints each line of the directives that take arguments of the kinds `first` to `last`.
void showSeveral(const Check &check, CAArgument first, CAArgument last)
{
    for (const Found &line : check.several) {
        if (line.row->takes >= first && line.row->takes <= last) {
            putRow(line.row->name, line.text, textOf(line.at));
        }
    }
}

// The line that set the value of `row`. Without an `updateproxy` line the proxy follows from host
// name and port: then it is the `hostname` line or, without that, the `port` line.
const Found &lineOf(const CADirective &row, Check *check)
{
    const Found &line = check->found[row.name];
    if (row.name != "updateproxy" || line.at.file != nullptr) {
        return line;
    }
    const Found &host = check->found["hostname"];
    return host.at.file != nullptr ? host : check->found["port"];
}

void showSettings(Check *check)
{
    for (const CADirective &row : CADirectives()) {
        if (CAAddsUp(row.takes) || !row.meaning.empty()) {
            continue;
        }
        const Found &line = lineOf(row, check);
        const std::string text(line.at.file != nullptr ? line.text : row.unset);
        putRow(row.name, row.shown != nullptr ? row.shown(ac) : text,
               line.at.file != nullptr ? textOf(line.at) : "default");
    }
    showSeveral(*check, CAArgument::ConfigFile, CAArgument::Variant);
}

// Reads the named files, or the agent's default file when `names` is empty. False when the agent
// would not run with them.
bool load(CAConfig *config, Check *check, const std::vector<const char *> &names)
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
        check->refused |= !isReadable(static_cast<const char *>(entry->object), "");
    }
    config->observer = check;
    const bool runs =
        !check->refused && config->load(urlQueue, static_cast<const char *>(files->object)) != 0;
    config->observer = nullptr;
    return runs;
}

void showSeeds(const std::vector<const char *> &names)
{
    CAForgetAllProcessed();
    static CAConfig *const again = new CAConfig;  // it lives until the process ends, as `ac` does
    Check check;
    check.showsSeeds = true;
    static_cast<void>(load(again, &check, names));
}

int showUsage()
{
    std::fputs(
        "Usage: refetchd-check [ options ... ] [ <proxy config file> ... ]\n"
        "       where options include:\n"
        "         -q    <warnings only>\n",
        stderr);
    return 1;
}

}  // namespace

int CACheckMain(int argc, char **argv)
{
    const std::vector<const char *> words(argv + std::min(argc, 1), argv + argc);
    const bool quiet = !words.empty() && std::strcmp(words[0], "-q") == 0;
    const std::vector<const char *> names(words.begin() + (quiet ? 1 : 0), words.end());
    if (std::any_of(names.begin(), names.end(), [](const char *name) { return *name == '-'; })) {
        return showUsage();
    }
    Check check;
    const bool runs = load(&ac, &check, names);
    if (check.refused) {
        return 1;
    }
    finish(&check);
    if (!quiet) {
        std::puts("Settings");
        showSettings(&check);
        std::puts("\nPatterns");
        showSeveral(check, CAArgument::Queries, CAArgument::HostLimit);
        std::puts("\nSeeds");
        showSeeds(names);
        std::puts("\nWarnings");
    }
    for (const Found &warning : check.warnings) {
        put((warning.at.file == nullptr ? "" : textOf(warning.at) + ": ") + warning.text);
    }
    return std::fflush(stdout) == 0 && runs && check.warnings.empty() ? 0 : 1;
}
