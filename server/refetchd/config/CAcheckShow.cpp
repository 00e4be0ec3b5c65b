#include "config/CAcheckShow.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "config/CAcheckRead.h"
#include "config/CAdirectives.h"
#include "url/CAURL.h"

namespace {

void showRow(std::string_view name, const std::string &value, const std::string &from)
{
    constexpr std::size_t kName = 25;
    constexpr std::size_t kValue = 24;
    std::string row(name);
    row.resize(kName, ' ');
    row += value + " ";
    row.resize(std::max(row.size(), kName + kValue), ' ');
    CAShowLine(row + from);
}

// Prints each line of the directives that take arguments of the kinds `first` to `last`.
void showSeveral(const CACheck &check, CAArgument first, CAArgument last)
{
    for (const CAFound &line : check.several) {
        if (line.row->takes >= first && line.row->takes <= last) {
            showRow(line.row->name, line.text, CATextOf(line.at));
        }
    }
}

// The line that set the value of `row`. Without an `updateproxy` line the proxy follows from host
// name and port: then it is the `hostname` line or, without that, the `port` line.
CAFound lineOf(const CADirective &row, const CACheck &check)
{
    CAFound line = check.lineOf(row.name);
    if (row.name != "updateproxy" || line.at.file != nullptr) {
        return line;
    }
    CAFound host = check.lineOf("hostname");
    return host.at.file != nullptr ? host : check.lineOf("port");
}

}  // namespace

void CAShowLine(const std::string &line, FILE *stream)
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

void CAShowSettings(const CACheck &check)
{
    for (const CADirective &row : CADirectives()) {
        if (CAAddsUp(row.takes) || !row.meaning.empty()) {
            continue;
        }
        const CAFound line = lineOf(row, check);
        const std::string text(line.at.file != nullptr ? line.text : row.unset);
        showRow(row.name, row.shown != nullptr ? row.shown(ac) : text,
                line.at.file != nullptr ? CATextOf(line.at) : "default");
    }
    showSeveral(check, CAArgument::ConfigFile, CAArgument::Sitemap);
}

void CAShowPatterns(const CACheck &check)
{
    showSeveral(check, CAArgument::Queries, CAArgument::HostLimit);
}

void CAShowSeed(const CAURL &url, CADrop why, const std::string &from)
{
    const std::string hits = std::to_string(url.hits()) + " hits, ";
    const bool isAsked = why == CADrop::None;
    CAShowLine((isAsked ? "ask   " : "skip  ") + std::string(url.stringitize()) + "   " +
               (isAsked ? "" : std::string(CADropName(why)) + "   ") + "(" +
               (from.empty() ? hits + g_ca_hits_filename : from) + ")");
}

void CAShowFound(const std::vector<CAFound> &all)
{
    for (const CAFound &found : all) {
        CAShowLine((found.at.file == nullptr ? "" : CATextOf(found.at) + ": ") + found.text);
    }
}

bool CAIsReadable(const std::string &name, const std::string &from)
{
    struct stat status = {};
    const int error = stat(name.c_str(), &status) != 0 || access(name.c_str(), R_OK) != 0 ? errno
                      : S_ISREG(status.st_mode)                                           ? 0
                      : S_ISDIR(status.st_mode)                                           ? EISDIR
                                                                                          : ESPIPE;
    if (error != 0) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
        CAShowLine("refetchd-check: " + name + ": " + std::strerror(error) + from, stderr);
    }
    return error == 0;
}
