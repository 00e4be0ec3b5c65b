// The companion that makes the hits file from access logs: which lines of them count and as what,
// and what becomes of the file when something fails.
#include <gmock/gmock.h>

#include "Process.h"
#include "Row.h"

namespace {

using namespace std::string_literals;

// Lines of a log of Squid, and of one in the combined format.
std::string squid(const std::string &url, const std::string &user = "-",
                  const std::string &request = "TCP_MISS/200 10 GET")
{
    return "1700000000.123      4 192.0.2.1 " + request + " " + url + " " + user +
           " HIER_DIRECT/198.51.100.1 text/html\n";
}
std::string combined(const std::string &request, const std::string &client = "192.0.2.2 - -",
                     const std::string &rest = "200 10 \"-\" \"agent\"")
{
    return client + " [10/Oct/2026:13:55:36 +0000] \"" + request + "\" " + rest + "\n";
}

struct HitsRow : Row {
    std::string log;
    std::string out;                                     // without any the command fails
    std::string err;                                     // a part
    const char *command = "$hits -m1 log | tail -n +3";  // there are a "hits" file and a "tmp", too
};

class Hits : public testing::TestWithParam<HitsRow> {};

TEST_P(Hits, ComeFromLogs)
{
    const HitsRow &row = GetParam();
    const TempDir dir;
    dir.write("log", row.log);
    dir.write("hits", "old\n");
    dir.write("tmp/keep", "");
    Process process({"--chdir=" + dir.path(), "TMPDIR=" + dir.path("tmp"),
                     "hits=" SOURCE_DIRECTORY "/hits/refetchd-hits", "bash", "-o", "pipefail", "-c",
                     row.command + "\ns=$?; ls -A tmp; ls -A | grep '^[.]'; exit $s"s});
    EXPECT_EQ(process.wait(Millis(30000)), row.out.empty() ? 1 : 0);
    EXPECT_EQ(process.out(), row.out + "keep\n") << "nothing else is left in directories";
    EXPECT_THAT(process.err(), testing::HasSubstr(row.err));
    EXPECT_LT(process.peakKilobytes(), 100'000) << "sort may use 64 MB, the rest next to nothing";
}

const std::string kP = "1 100.0% http://h/p\n";
const std::string kSquid = squid("http://h/p");
const std::string kGet = "GET http://h/p HTTP/1.1";
const std::string kPath = "GET /p HTTP/1.1";
const std::string kCounted = squid("http://h/p", "joe doe") + combined(kGet, "::1 - -", "304 -") +
                             combined(kGet, "c - [1/Jan/2026:1:1:1 +0000] GET x") +
                             combined(kGet, R"(c - x [1/Jan/26:1 +0] \"GET /e\" 200 1)") +
                             combined(kGet, "c - dom\\joe\\") +
                             combined(kGet, "c - -", R"(200 1 "\" \"\\" "a")");
const std::string kOdd = squid("http://h/a\x01z") + squid("http://h/\xc3\xa4") +
                         squid("http://h/\"onclick=") + squid("http://me:secret@h/") +
                         squid("http://h/a b") + combined(R"(GET http://h/\" HTTP/1.1)") +
                         combined("GET http://h/a b HTTP/1.1");
const std::string kBad = squid("u", "-", "TCP_MISS/2 x GET") + combined(kGet, "192.0.2.2 -") +
                         "\n\x1b[2J\n" + kSquid.substr(0, 72) + "\n" +
                         combined(kGet).substr(0, 60) + "\n" + combined(kGet, "c - -", "20 1");
const std::string kLong = "http://h/" + std::string(991, 'x');
const std::string kLeftOut =
    combined(kGet, "c - -", "404 1") + combined(kGet, "c - -", "302 -") +
    squid("http://h/", "-", "TCP_DENIED/403 1 GET") + combined("POST http://h/p HTTP/1.1") +
    squid("h:443", "-", "TCP_TUNNEL/200 9 CONNECT") + combined("-") + squid("gopher://h/") +
    combined(kGet, "c - -", "200 1 \"-\" \"Mozilla/4.0 (emulation; QRX BUG)\"") +
    squid(kLong + "x") + squid("http://h/p?") + combined(kPath) +
    combined(kPath, "192.0.2.2:99 - -");
const std::string kReasons =
    "3 not GET, 3 of another status, 1 by the agent, 1 neither http, https nor ftp, 2 with a path "
    "only (-s names the site), 1 logged without the query (Squid: strip_query_terms off), "
    "7 with characters that do not belong in a URL, 1 with a URL of more than 1000 characters\n";
const std::string kTop = squid("http://h/b") + squid("http://h/c") + squid("http://h/a") +
                         squid("http://h/c") + squid("http://h/B");
const std::string kPorts = combined(kPath, "h:80 c - -") + combined(kPath, "h:443 ::1 - -") +
                           combined(kPath, "h:8080 c - -");
const std::string kHosts = "1 33.3% http://h/p\n1 33.3% http://h:8080/p\n1 33.3% https://h/p\n";

const HitsRow kLogs[] = {
    {"Formats", kCounted, "6 100.0% http://h/p\n",
     " 6 lines read, 6 requests counted for 1 URLs, 1 lines written to "},
    {"LeftOut", kSquid + kLeftOut + kOdd, kP, "; lines left out: " + kReasons},
    {"Unreadable", kSquid + kBad, kP,
     "hits: log: line 2 has an unknown format\nrefetchd-hits: 8 lines"},
    {"PathBehindSite", combined(kPath), kP, "", "$hits -m1 -s http://h// log | tail -n +3"},
    {"HostFromTheLog", kPorts, kHosts, "3 URLs"},
    {"HostInCapitals", squid("HTTP://H/P"), "1 100.0% http://h/P\n", "1 URLs"},
    {"FragmentSplitsHits", squid("http://h/p#a") + kSquid, "2 100.0% http://h/p\n", "for 1 URLs"},
    {"LongestLine", squid(kLong), "1 100.0% " + kLong + "\n", ""},
    {"OwnClients", squid("http://h/q") + combined(kGet) + combined(kGet, "192.0.2.22 - -"), kP,
     "left out: 2 from", "$hits -m1 -x 192.0.2.1 -x 192.0.2.2 log | tail -n +3"},
    {"TiesInAnyOrder", kTop, "2 40.0% http://h/c\n1 20.0% http://h/B\n1 20.0% http://h/a\n",
     "4 URLs, 3 lines written to standard output", "$hits -m1 -n3 log | tail -n +3"},
    {"TooFewRequests", kTop, "2 40.0% http://h/c\n", "1 lines", "$hits log | tail -n +3"},
};
INSTANTIATE_TEST_SUITE_P(OfALog, Hits, testing::ValuesIn(kLogs), rowName);

const HitsRow kFiles[] = {
    {"LineTooLong", std::string(65536, 'a') + "\n" + std::string(65537, 'a') + "\n" + kSquid, kP,
     "hits: log: line 1 has an unknown format\nrefetchd-hits: log: line 2 has more than 65536 byt"},
    {"LineEndless", kSquid, "3 100.0% http://h/p\n",
     "1 of an unknown format, 3 of more than 65536 bytes",
     "(cat log; head -c 80M /dev/zero; cat log; head -c 80M /dev/zero | tr '\\0' a; echo; "
     "head -c 70K /dev/zero; echo; echo x; cat log log) | $hits | tail -n 1"},
    {"ManyLongUrls", kSquid, "2 0.0% http://h/p\n", "110002 requests counted for 110001 URLs",
     "u=$(printf %0900d 0); (seq 110000 | sed \"s|.*|1.1 4 c T/200 1 GET http://h/&$u - H/x t|\"; "
     "cat log log) | $hits | tail -n 1"},
    {"Compressed", kSquid, "4 100.0% http://h/p\n", "1 lines written to standard output\n",
     "gzip -k log; xz -k log; bzip2 -k log; zstd -q log; $hits log.* | tail -n 1"},
    {"Input", kSquid, "2 100.0% http://h/p\n" + kP, "2 lines read",
     "cat log | $hits - log | tail -n 1 && $hits -m1 <log | tail -n 1"},
    {"NamesLikeOptions", kSquid, "2 100.0% http://h/p\n", "1 lines written to hits\n",
     "cp log ./-v; cp log a=b; $hits -o hits -- -v a=b; tail -n 1 hits"},
    {"Mode", kSquid, "604\n640\n", "",
     "chmod 604 hits; umask 27; for o in hits new; do $hits -m1 -o $o log; stat -c %a $o; done"},
    {"Link", kSquid, kP, "", "ln -s hits l; $hits -m1 -o l log; test -L l && tail -n 1 hits"},
    {"LogMissing", kSquid, "1\n" + kP, "none: No such file or directory\nrefetchd-hits: .: Is a ",
     "$hits -m1 -o hits none . log; echo $?; tail -n 1 hits"},
    {"LogCut", kSquid, "1\n" + kP,
     "a.gz: gzip could not read it to the end; the requests read so far are counted",
     "gzip -c log | head -c 60 >a.gz; $hits -m1 -o hits a.gz log; echo $?; tail -n 1 hits"},
    {"LogRotated", "", "1\nold\n", "no URL was requested 2 times; hits is unchanged\n",
     "$hits -o hits log; echo $?; cat hits"},
    {"DiskFull", squid(kLong), "1\nold\n", "hits: cannot write hits; it is unchanged\n",
     "(ulimit -f 1; $hits -m1 -o hits log); echo $?; cat hits"},
    {"OutputFull", kSquid, "", "cannot write to standard output\n", "$hits -m1 log >/dev/full"},
    {"NoDirectory", kSquid, "", "cannot write to none/\n", "$hits -m1 -o none/hits log"},
    {"NotAFile", kSquid, "", "/dev/null is not a regular file\n", "$hits -m1 -o /dev/null log"},
    {"Ended", "", "143\nold\n", "",
     "mkfifo p; timeout 15 $hits -o hits p & exec 3>p; kill $!; wait $!; echo $?; cat hits"},
    {"RawMessages", "", "", "hits: no?[2J?: No such file", "$hits $'no\\e[2J\\n'"},
    {"Options", "", "2\n2\n2\n2\n2\n",
     ": not a site such as http://www.example.com: h\nUsage: refetchd-hits [-m MIN]",
     "for o in -q -n0 -m1x '-s h' -o; do $hits $o; echo $?; done"},
};
INSTANTIATE_TEST_SUITE_P(Whole, Hits, testing::ValuesIn(kFiles), rowName);

}  // namespace
