// The companion that makes a page from results logs: which lines count and as what, and what
// becomes of the page when something fails. The browser test is in tests/report/.
#include <gmock/gmock.h>

#include "Process.h"
#include "Row.h"

namespace {

using namespace std::string_literals;

// A line of a log of the night to 22 November, and one with any other keys.
std::string line(const std::string &rest, const std::string &time = "22T02:00:00.000")
{
    return "{\"time\":\"2026-11-" + time + "Z\"," + rest + "}\n";
}
std::string url(const std::string &verdict, const std::string &path = "", const char *why = "",
                const std::string &time = "22T02:00:00.000")
{
    return line("\"url\":\"http://h/" + path +
                    "\",\"source\":\"admin\",\"depth\":0,\"status\":200," +
                    "\"bytes\":1000,\"ms\":500,\"verdict\":\"" + verdict + "\"" + why,
                time);
}
std::string times(int count, const std::string &text)
{
    return count == 0 ? "" : text + times(count - 1, text);
}

const char *const kText = "$report -t log";
const char *const kPage = "$report log";

struct ReportRow : Row {
    std::string log;
    Words out;                    // parts, in their order
    const char *command = kText;  // there is an old "page", too
    Words absent = {};            // parts that are not in the output
};

class ReportPage : public testing::TestWithParam<ReportRow> {};

TEST_P(ReportPage, ComesFromLogs)
{
    const ReportRow &row = GetParam();
    const TempDir dir;
    dir.write("log", row.log);
    dir.write("page", "old\n");
    Process process({"--chdir=" + dir.path(), "TZ=Europe/Berlin", "SOURCE_DATE_EPOCH=1795330800",
                     "report=" REFETCHD_REPORT, "bash", "-c", "exec 2>&1\n"s + row.command});
    EXPECT_EQ(process.wait(Millis(30000)), 0);
    const std::string out = process.out();
    std::size_t at = 0;
    for (const std::string &part : row.out) {
        const std::size_t found = out.find(part, at);
        ASSERT_NE(found, std::string::npos) << part << "\nis not behind the others in\n" << out;
        at = found + part.size();
    }
    for (const std::string &part : row.absent) {
        EXPECT_THAT(out, testing::Not(testing::HasSubstr(part)));
    }
}

const std::string kGood = times(8, url("refreshed")) + url("stored") + url("unchanged");
const char *const kNoConnection = ",\"why\":\"no connection\"";
const std::string kDown = times(9, url("failed", "", kNoConnection)) + url("refreshed");
const std::string kRun = line(R"("run":1,"runs":1,"seconds":312,"left":7,"stopped":true)");
const std::string kDrop = ",\"why\":\"maxurls\"";
const std::string kDrops = url("dropped", "", kDrop.c_str()) +
                           url("dropped", "", ",\"why\":\"links of this page\",\"more\":118");
const std::string kRunDrops =
    line(R"("url":"","verdict":"dropped","why":"links of this run","more":118)");
const char *const kOver = ",\"why\":\"run was over\"";
const std::string kNights = times(60, url("refreshed", "", "", "18T12:00:00.000")) +
                            times(60, url("refreshed", "", "", "19T12:00:00.000")) +
                            times(60, url("refreshed", "", "", "20T10:00:00.000")) +
                            times(60, url("refreshed", "", "", "20T12:00:00.000")) + kGood;
const std::string kBad =
    "\n{\n[]\nnull\n{}\n\xff\n" + times(40, "[") + "\n" + url("loved") + url("stored").substr(9) +
    url("refreshed", "", "", "31T02:00:00.000") + url("refreshed", "", "", "25T02:00:00.000") +
    line(R"("url":"u","verdict":"stored","ms":-1)") + line(R"("url":7,"verdict":"stored")") +
    line(R"("url":"u","verdict":"stored","bytes":9999999999999)") +
    line(R"("url":"u","verdict":"stored"})") + line(R"("seconds":33554433)") +
    line(R"("url":"","verdict":"stored","more":1)") +
    line("\"url\":\"" + std::string(70000, 'x') + "\"") +
    "{\"time\":\"2026-11-22T02:00:00.000Z\",\"url\":\"http://h/";
const std::string kHostile =
    url("failed", R"(\"><script>\u0000\u202e</script>&'\\\udb40\udc41\u001b[2J)") +
    line(R"~("url":"javascript:alert(1)","verdict":"failed","why":"<b>")~");
const char *const kThreeLogs =
    "mkdir -p a/x b/x c/x; cp log a/x/r.log; cp log c/x/r.log; sed 's/11-22/11-21/' log | "
    "gzip >b/x/r.log-20261121.gz; touch b/x/r.log; $report -t a/x/r.log b/x/r.* c/x/r.log";

const ReportRow kLogs[] = {
    {"Fine",
     kGood,
     {"to Sunday, 22 November 2026\n\nAll is well: 10 pages are fresh.\n\nRequests: 10 in 500 ms, "
      "10 kB received",
      "refreshed                  8       80 %", "10         10          0  h\n",
      "10      10 kB  200\n", "10          0  22 Nov, 03:00:00, 500 ms, log\n"}},
    {"ProxyDown",
     kDown,
     {"Most requests failed: 9 of 10.\n9 requests failed, all with the reason \"no connection\". "
      "Is the "
      "proxy running"}},
    {"ProxyIgnoresUs",
     times(9, url("served from cache")) + kGood.substr(0, 1) + "\n",
     {"Most pages came from the cache: 9.\nThe proxy probably ignores max-age=0"}},
    {"NothingShows", times(9, url("unknown")), {"Most answers do not show"}},
    {"NotKept", times(9, url("not cacheable")) + url("stored"), {"kept in the cache: 9 of 10."}},
    {"SomeFail",
     kGood + url("failed", "x", ",\"why\":\"status 404\""),
     {"Some pages are not fresh: 10 of 11 pages are.\n1 request failed, with the reason \"status "
      "404\"",
      "Not fresh\n        1  status 404", "http://h/x\n"}},
    {"RunLine",
     kGood + kRun,
     {"A run was stopped before its end.\n7 URLs were left in the queue", "in 5 min 12 s,",
      "03:00:00, 5 min 12 s, log, 7 left, stopped\n"}},
    {"EndOfTheRun",
     kGood + kRun + times(12, url("failed", "", kOver, "22T02:06:00.000")) + kRunDrops,
     {"Some pages are not fresh: 10 of 22 pages are.", "118  links of this run\n",
      "22         12  22 Nov, 03:00:00, 5 min 12 s, log, 7 left, stopped\n\n"}},
    {"OnePage", url("stored"), {"All is well: 1 page is fresh.", "1 line was read"}},
    {"PauseEndsARun",
     url("stored") + url("stored", "", "", "22T03:00:01.000"),
     {"1          0  22 Nov, 04:00:01,", "1          0  22 Nov, 03:00:00,"}},
    {"NoonEndsANight",
     kNights,
     {"All is well", "fewer than half as many requests as usual: 10 instead of about 60",
      "\n       10", "22 Nov\n       60", "21 Nov\n      120", "20 Nov\n"}},
    {"NightWithoutRun", url("stored", "", "", "19T02:00:00.000") + kGood, {"no run  21 Nov\n"}},
    {"OldLog",
     url("stored", "", "", "19T02:00:00.000"),
     {"There was no run last night: the last one ended 3 days ago."}},
    {"ANightIsMissing",
     url("stored", "", "", "21T00:59:00.000"),
     {"2026\n\nThere was no run last night: the last one ended 1 day ago."}},
    {"Dropped",
     kGood + kDrops,
     {"All is well", "Not requested\n      118  links of this page", "        1  maxurls\n"}},
    {"Damaged", kGood + kBad, {"10 pages", "19 were not understood (the first: log, line 11)"}},
    {"Empty", "", {"No requests were logged.\n\n0 lines were read."}},
    {"TerminalsObeyNothing", kHostile, {"http://h/\"><script>?"}, kText, {"\x1b"}},
    {"Escaped",
     kHostile,
     {"<a class=\"url\" rel=\"noreferrer noopener\" href=\"http://h/%22%3E%3Cscript%3E%00"
      "%E2%80%AE%3C/script%3E&amp;%27%5C%F3%A0%81%81%1B[2J\">http://h/&quot;&gt;&lt;script&gt;\\x00"
      "\\xe2\\x80\\xae&lt;/script&gt;&amp;&#39;\\\\xf3\\xa0\\x81\\x81\\x1b[2J<",
      "&lt;b&gt;", "<span class=\"url\">javascript:alert(1)</span>"},
     kPage,
     {"<script", "<b>&lt;", "\x1b"}},
    {"UrlThatWasCut",
     url("failed", "part", ",\"cut\":9999"),
     {"<span class=\"url\">http://h/part...</span>"},
     kPage,
     {"href"}},
    {"Compressed",
     url("stored"),
     {"All is well: 5 pages", "5 lines were read"},
     "for t in gzip xz bzip2 zstd; do $t -c log >log.$t; done; $report -t log log.*"},
    {"CompressedAndCut",
     kGood,
     {"report: log.gz: gzip could not read it to the end\n", "10 pages", "log.gz: gzip could"},
     "gzip -c log | head -c 60 >log.gz; $report -t log.gz log"},
    {"NoTool",
     kGood,
     {"report: log.gz: gzip is needed to read it: No such", "10 pages"},
     "gzip log; gzip -cd log.gz >new; PATH=; $report -t log.gz new"},
    {"Machines",
     kDown,
     {"Most requests failed: 18 of 20.", "No requests of b were logged.", "10          9  22 Nov",
      "ms, c\n       10          9  22 Nov", "ms, a\n", "20          2         18",
      "10          1          9        500 ms  21 Nov\n"},
     kThreeLogs},
    {"RotatedInAnyOrder",
     url("stored"),
     {"2          0  22 Nov, 03:00:00,"},
     "sed s/T02:00/T02:59/ log >log.1; $report -t log log.1",
     {"22 Nov, 03:59"}},
    {"DatedAndNumbered",
     url("stored"),
     {"2          0  22 Nov, 03:00:00, 500 ms, cache-2", "3          0  22 Nov, 03:00:00"},
     "for f in cache-1.log cache-1-20261121.log cache-1.log-2026-11-20 cache-2.log cache-2.log.3"
     "; do cp log $f; done; gzip -f cache-1.log-2026-11-20; $report -t cache*"},
    {"Input", kGood, {"10 pages", "standard input\n"}, "cat log | $report -t -"},
};
INSTANTIATE_TEST_SUITE_P(OfALog, ReportPage, testing::ValuesIn(kLogs), rowName);

const ReportRow kFiles[] = {
    {"Mode",
     kGood,
     {"640\n", "log  new  page\n"},
     "umask 27; $report -o new log; stat -c %a new; ls -A | xargs -n9 | sed 's/ /  /g'"},
    {"Link", kGood, {"<!DOCTYPE html>"}, "ln -s page l; $report -o l log; test -L l && cat page"},
    {"LogMissing",
     kGood,
     {"none: No such file", ".: Is a directory", "0\n"},
     "$report -o page none . log; echo $?"},
    {"NoLog",
     kGood,
     {"none: No such file", "no log can be read\n1\nold\n"},
     "$report -o page none; echo $?; cat page"},
    {"DiskFull",
     kGood,
     {"cannot write page: File too large\n1\nold\nlog  page\n"},
     "trap '' XFSZ; (ulimit -f 1; $report -o page log); echo $?; cat page; ls -A | xargs -n9 | sed "
     "'s/ /  /g'"},
    {"OutputFull",
     kGood,
     {"cannot write to standard output: No space", "\n1\n"},
     "$report log >/dev/full; echo $?"},
    {"NotAFile",
     kGood,
     {"/dev/null is not a regular file\n1\n"},
     "$report -o /dev/null log; echo $?"},
    {"RawMessages", kGood, {"report: no?[2J: No such file"}, "$report $'no\\e[2J' || true"},
    {"Usage",
     kGood,
     {"not 0\nUsage", "not 1x\nUsage: refetchd-report [-t]", "Usage", "2222\nUsage",
      "refetchd-report 0."},
     "c=; for o in '-n 0' '-n 1x' -x ''; do $report $o ${o:+log}; c=$c$?; done; echo $c; "
     "$report --help; $report --version"},
};
INSTANTIATE_TEST_SUITE_P(Whole, ReportPage, testing::ValuesIn(kFiles), rowName);

// The command lines of the documents, with directories below this one.
TEST(ReportExamples, AreRun)
{
    const TempDir dir;
    for (const char *const log : {"results.log", "results.log.1", "cache1/results.log"}) {
        dir.write("var/log/refetchd/"s + log, kGood);
    }
    dir.write("var/log/refetchd/cache2/results.log", kGood);
    Process process(
        {"--chdir=" + dir.path(), "bash", "-ec",
         "mkdir -p var/www var/lib/refetchd/pub/en_US/reports\n"
         "refetchd-report() { " REFETCHD_REPORT " \"$@\"; }\n"
         "examples=$(cd " SOURCE_DIRECTORY
         " && . scripts/lib/docs.sh && examples_for tests/e2e/report_test.cpp)\n"
         "test \"$(grep -c . <<<\"$examples\")\" -ge 3\neval \"${examples//\\/var/var}\"\n"
         "grep -l 'All is well\\|no run' $(find -name nights.html)"});
    EXPECT_EQ(process.wait(Millis(30000)), 0) << process.err();
}

}  // namespace
