#include "report/CAresults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <thread>
#include <vector>

#include "AgentTest.h"
#include "report/CAprogress.h"
#include "url/CAURL.h"

namespace {

constexpr std::int64_t kNow = 1795290300;  // 2026-11-21 19:45:00

struct VerdictRow : Row {
    std::string headers;  // "|" before each; of two the last counts
    const char *verdict;
    std::int32_t age = -1;
    std::int32_t status = 200;
    const char *why = "";
};
class Verdict : public testing::TestWithParam<VerdictRow> {};

TEST_P(Verdict, IsMisjudged)
{
    const std::string_view text = GetParam().headers;
    const auto header = [text](const std::string &name) {
        const std::size_t at = text.rfind("|" + name + ": ");
        const std::size_t from = at == text.npos ? text.size() : at + name.size() + 3;
        return text.substr(from, text.find('|', from) - from);
    };
    const CACacheHeaders headers = {
        header("Age"),      header("Cache-Control"), header("Cache-Status"),
        header("Date"),     header("Expires"),       header("Via"),
        header("Warning"),  header("X-Cache"),       header("X-Cache-Lookup"),
        header("X-Varnish")};
    const CAJudgement judged = CAJudge({.status = GetParam().status,
                                        .started = kNow * 1000,
                                        .milliseconds = 4000,
                                        .headers = headers});
    EXPECT_EQ(CAVerdictName(judged.verdict), GetParam().verdict);
    EXPECT_EQ(judged.age, GetParam().age);
    EXPECT_EQ(judged.why, GetParam().why);
}

constexpr const char *kNew = "refreshed";
constexpr const char *kSame = "unchanged";
constexpr const char *kHit = "served from cache";
constexpr const char *kNo = "not cacheable";
constexpr const char *kOld = "origin failed, old copy served";
constexpr const char *kBrief = "redirection without freshness";
constexpr const char *kUnkept = "not stored by the cache";
const std::string kSquid = "|Via: 1.1 p (squid/5.7)|X-Cache: ";
const std::string kVarnish = "|Via: 1.1 varnish (Varnish/7.1)|X-Varnish: ";
const std::string kTs = "|Via: http/1.1 p (ApacheTrafficServer/9.2.9 [";
// What the cache of the origin's own network has put into its answer.
const std::string kCdn = "|Age: 300|X-Cache: HIT from cdn|X-Varnish: 1 2|Cache-Status: cdn; hit";

// The proxies' rows are headers that they really sent, with higher ages.
const VerdictRow kVerdictRows[] = {
    {{"SquidFirst"}, kSquid + "MISS from p|X-Cache-Lookup: MISS from p:1", "stored"},
    {{"SquidReplaced"}, kCdn + kSquid + "MISS from p|X-Cache-Lookup: HIT from p:1", kNew},
    {{"SquidConfirmed"}, kSquid + "HIT from p|X-Cache-Lookup: HIT from p:1|Age: 0", kSame},
    {{"SquidAged"}, kSquid + "HIT from p|X-Cache-Lookup: HIT from p:1|Age: 6", kHit, 6},
    {{"SquidOriginFails"},
     kSquid + "HIT from p|Age: 0|Warning: 111 p \"Revalidation failed\"",
     kHit,
     0,
     200,
     kOld},
    {{"Squid302"}, kSquid + "MISS from p", kNo, -1, 302, kBrief},
    {{"Squid307OfTheCache"}, kSquid + "HIT from p|Age: 6", kHit, 6, 307},
    {{"Squid303"}, kSquid + "MISS from p|Cache-Control: max-age=9", kNo, -1, 303, kUnkept},
    {{"NginxRecipe"}, "|X-Cache: BYPASS", kNew},
    {{"NginxFirst"}, "|X-Cache: MISS", "stored"},
    {{"NginxHit"}, "|X-Cache: HIT", kHit},
    {{"NginxConfirmed"}, "|X-Cache: REVALIDATED", kSame},
    {{"NginxPrivate"}, "|Cache-Control: max-age=9, Private|X-Cache: MISS", kNo, -1, 200, "private"},
    {{"NginxOriginFails"}, "|X-Cache: STALE", kHit, -1, 200, kOld},
    {{"NginxUpdates"}, "|X-Cache: UPDATING", kHit, -1, 200, "another request was fetching it"},
    {{"Nginx302MaxAge"}, "|Cache-Control: no-store=x, max-age=9|X-Cache: BYPASS", kNew, -1, 302},
    {{"Nginx302Shared"},
     "|Cache-Control: s-maxage=\"0\", max-age=9|X-Cache: BYPASS",
     kNo,
     -1,
     302,
     kBrief},
    {{"Nginx302Expires"},
     "|Date: Sun, 22 Nov 2026 13:41:51 GMT|Expires: Sun, 22 Nov 2026 13:41:52 GMT|X-Cache: MISS",
     "stored",
     -1,
     302},
    {{"Nginx307Expired"},
     "|Expires: Sat, 21 Nov 2026 19:45:00 GMT|X-Cache: MISS",
     kNo,
     -1,
     307,
     kBrief},
    {{"Nginx301"}, "|X-Cache: MISS", "stored", -1, 301},
    {{"VarnishFetched"}, kCdn + kVarnish + "14", kNew},
    {{"Varnish308"}, kVarnish + "14|Cache-Control: max-age=9", kNo, -1, 308, kUnkept},
    {{"VarnishAged"}, kVarnish + "65538 32771|Age: 6", kHit, 6},
    {{"TrafficServerCodesFirst"}, kTs + "uScMsSfWpSeN:t cCMp sS])", "stored"},
    {{"TrafficServerCodesConfirmed"}, kCdn + kTs + "cSsNfU])", kSame},
    {{"TrafficServerCodesReplaced"},
     kCdn + kTs + "cSsSfU])|Expires: Sat, 21 Nov 2026 19:50:00 GMT",
     kNew},
    {{"TrafficServerOriginSays503"},
     kTs + "cSsSfU])|Age: 6|Expires: Sat, 21 Nov 2026 20:15:04 GMT",
     kHit,
     6,
     200,
     kOld},
    {{"TrafficServerOriginFails"}, kTs + "cSsEf ])|Age: 6", kHit, 6, 200, kOld},
    {{"TrafficServerCodesHit"}, kTs + "uScHs f p eN:t cCHp s ])|Age: 6", kHit, 6},
    {{"TrafficServerCodesUnkept"}, kTs + "cMsSf ])", kNo, -1, 200, kUnkept},
    {{"TrafficServerCodesCut"}, kTs + "u", "unknown"},
    {{"HttpdFirstOrReplaced"}, "|X-Cache: MISS from p", kNew},
    {{"HttpdConfirmed"}, "|X-Cache: REVALIDATE from p", kSame},
    {{"HttpdOriginFails"},
     "|X-Cache: HIT from p|Warning: 111 Revalidation failed",
     kHit,
     -1,
     200,
     kOld},
    {{"StatusConfirmed"}, "|Cache-Status: p; fwd=stale; fwd-status=304", kSame},
    {{"StatusOriginFails"},
     "|Cache-Status: p; fwd-status=502; fwd=stale|Age: 9",
     kHit,
     9,
     200,
     kOld},
    {{"StatusHit"}, "|Cache-Status: o; fwd=miss, p; hit; ttl=5|Age: 9", kHit, 9},
    {{"StatusStale"}, R"(|Cache-Status: "p, q; hit ;"; hit=?0; fwd=stale; ttl=5)", kNew},
    {{"StatusFirst"}, R"(|Cache-Status: p;a="\";hit";fwd=uri-miss;stored)", "stored"},
    {{"Status302Stored"}, "|Cache-Status: p; fwd=miss; stored", "stored", -1, 302},
    {{"Status302NotStored"}, "|Cache-Status: p; stored, q; fwd=miss", kNo, -1, 302, kBrief},
    {{"StatusUnkept"}, "|Cache-Status: p; fwd=miss; stored=?0", kNo, -1, 200, kUnkept},
    {{"NoStore"}, "|Cache-Control: No-Store, private", kNo, -1, 200, "no-store"},
    {{"CopyMadeWhileWeWaited"}, "|Age: 5", kNew},
    {{"AgeByDate"}, "|Date: Sat, 21 Nov 2026 19:43:59 GMT", kHit, 61},
    {{"DateOfSlowClock"}, "|Date: Sat, 21 Nov 2026 19:44:00 GMT", "unknown"},
    {{"DateWithoutSense"}, "|Date: Sat, 31 Feb 2020 19:43:59 GMT", "unknown"},
    {{"DateWithoutMonth"}, "|Date: Sat, 21 xxx 2020 19:43:59 GMT", "unknown"},
    {{"HugeAge"}, "|Age: 99999999999999999999", kHit, INT32_MAX},
    {{"AgeIsNoNumber"}, "|Age: 1e9", "unknown"},
    {{"PrivateField"}, "|Cache-Control: private=\"no-store\"|Age: 0", kNew},
    {{"NotFound"}, "|X-Cache: HIT", "failed", -1, 404, "status 404"},
};
INSTANTIATE_TEST_SUITE_P(CAresults, Verdict, testing::ValuesIn(kVerdictRows), rowName);

class CAResultsTest : public AgentTest {
protected:
    CAResultsTest()
    {
        results_.setLog(dir_.path("log").c_str());
        results_.setMetricsFile(dir_.path("metrics").c_str());
    }
    void finish(std::int32_t status, std::string_view age = "")
    {
        const CAFailure failure = status == 0 ? CAFailure::TimedOut : CAFailure::None;
        results_.finished(url_, {status, failure, 9, kNow * 1000 + 7, 0, {.age = age}});
    }
    static std::string line(const std::string &status, const std::string &verdict)
    {
        const std::string start = R"({"time":"2026-11-21T19:45:00.007Z","url":"http://h/p",)";
        return start + R"("source":"admin","depth":0,"status":)" + status +
               R"(,"bytes":9,"ms":0,"verdict":)" + verdict + "}\n";
    }
    std::string endRun()
    {
        results_.endRun(kNow, {.seconds = 7, .queueLeft = 3});
        return dir_.read("log");
    }

    const CAURL url_{"http://h/p"};
    CAResults results_;
};

TEST_F(CAResultsTest, RunsAreMixedOrCountedWrong)
{
    const std::string aged = line("200", R"("served from cache","age":9)");
    finish(200, "0");
    finish(200, "9");
    finish(0);
    EXPECT_EQ(endRun(),
              line("200", R"("refreshed")") + aged + line("0", R"("failed","why":"timed out")"));
    EXPECT_FALSE(results_.cacheIgnoresUs());  // half of them are not most
    std::filesystem::remove(dir_.path("log"));
    results_.dropped("http://h/", SOURCE_HITS, 1, CADrop::Processed);
    finish(200, "9");
    results_.flush();
    EXPECT_EQ(dir_.read("log"), aged);
    EXPECT_EQ(endRun(), aged);
    EXPECT_TRUE(results_.cacheIgnoresUs());
    for (const char *const gauge : {"run_start_time_seconds 1795290300\n",
                                    "run_duration_seconds 7\n", "response_bytes 9\n"}) {
        EXPECT_THAT(dir_.read("metrics"), testing::HasSubstr(gauge));
    }
}

TEST_F(CAResultsTest, TextIsNoJson)
{
    const std::pair<std::string, std::string> rows[] = {
        {"\"\\\n\x7f", R"(\"\\\u000a\u007f",)"},
        {"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\","},
        {"\xe4-\xc3", R"(\u00e4-\u00c3",)"},
        {"\xc0\xaf\xe0\x80\xaf", R"(\u00c0\u00af\u00e0\u0080\u00af",)"},
        {"\xed\xa0\x80\xf4\x90\x80\x80", R"(\u00ed\u00a0\u0080\u00f4\u0090\u0080\u0080",)"},
        {"1234567\"12345678\x7f", R"(:"1234567\"12345678\u007f",)"},
        {"12345678\x80", R"(:"12345678\u0080",)"},
        {std::string(342, '\x1'), R"("why":"maxurls","cut":342})"},
        {std::string(341, '\x1') + "ab", R"(\u0001ab","source")"},
        {std::string(1022, '"') + "abcde%41", R"(\"abcd","source")"},
        {std::string(2048, 'a'),
         R"(a","source":"topn","depth":2,"status":0,"bytes":0,"ms":0,"verdict":"dropped","why":"maxurls"})"},
        {std::string(2049, 'a'), R"("why":"maxurls","cut":2049})"},
        {std::string(2046, 'a') + "\xe2\x82\xac", R"(aa","source")"},
        {std::string(2046, 'a') + "%41b", R"(aa","source")"},
        {std::string(2045, 'a') + "%41b", R"(a%41","source")"},
    };
    for (const auto &[text, quoted] : rows) {
        results_.dropped(text, SOURCE_HITS, 2, CADrop::MaxUrls);
        EXPECT_NE(endRun().find(quoted), std::string::npos) << quoted;
    }
}

TEST_F(CAResultsTest, DropsAreNoiseOrMissing)
{
    const CAURL later("http://h/later");
    const std::regex line(".*http://h/(.*)\",\"source.*verdict\":\"(.*)}\n");
    for (int run = 0; run < 2; ++run) {
        finish(200);
        EXPECT_FALSE(results_.dropped("http://h/p", SOURCE_HITS, 1, CADrop::IgnoreUrl));
        for (const char *const link :
             {"http://h/1", "http://h/later", "http://h/1", "http://h/2"}) {
            results_.dropped(link, SOURCE_CONFIG, 1, CADrop::MaxUrls);
        }
        results_.setInFlight(1, &later);  // its own line is one of the next run
        results_.droppedMore(url_, 77);
        EXPECT_EQ(std::regex_replace(endRun(), line, "$1 $2; "),
                  "p unknown\"; p dropped\",\"why\":\"links of this page\",\"more\":77; "
                  "1 dropped\",\"why\":\"maxurls\"; 2 dropped\",\"why\":\"maxurls\"; ");
        std::filesystem::remove(dir_.path("log"));
        for (const char *const gauge : {"dropped_urls{by=\"maxurls\"} 2\n",
                                        "dropped_links_more 77\n", "verdict=\"dropped\"} 2\n"}) {
            EXPECT_THAT(dir_.read("metrics"), testing::HasSubstr(gauge));
        }
    }
    results_.setLog(dir_.path("log").c_str(), false);
    results_.dropped("http://h/1", SOURCE_CONFIG, 1, CADrop::MaxUrls);
    results_.droppedMore(url_, 77);
    EXPECT_EQ(endRun(), "");
    EXPECT_THAT(dir_.read("metrics"), testing::HasSubstr("\"maxurls\"} 1\n"));
    results_.setInFlight(1, &later);
    endRun();
    results_.finished(later, {});
    EXPECT_FALSE(results_.dropped("http://h/later", SOURCE_CONFIG, 1, CADrop::MaxUrls));
}

TEST(CATimeText, TimeIsThatOfTheLineBefore)
{
    CATimeText time;
    for (const auto &[moment, text] : std::initializer_list<std::pair<std::int64_t, const char *>>{
             {kNow * 1000 + 7, "2026-11-21T19:45:00.007Z"},
             {kNow * 1000 + 999, "2026-11-21T19:45:00.999Z"},
             {kNow * 1000 + 1000, "2026-11-21T19:45:01.000Z"},
             {-1, "1969-12-31T23:59:59.999Z"},
             {-1000, "1969-12-31T23:59:59.000Z"},
             {0, "1970-01-01T00:00:00.000Z"}}) {
        EXPECT_EQ(time.of(moment), text);
    }
}

TEST(CADropped, LimitIsExceededOrMissed)
{
    const std::pair<std::string, std::size_t> rows[] = {
        {"x", CADropped::kMostUrls},
        {std::string(2048, 'x'), CADropped::kMostText / 2048},
        {std::string(300, '\x1') + "\"", CADropped::kMostText / 1802}};
    for (const auto &[text, most] : rows) {
        CADropped drops;
        for (std::size_t i = 0; i < most + 2; ++i) {
            EXPECT_TRUE(drops.add(i, {.text = text, .why = CADrop::MaxUrls}));
        }
        EXPECT_FALSE(drops.add(0, {}));
        EXPECT_EQ(drops.urls().size(), most);
        EXPECT_EQ(drops.more(), 2);
    }
}

TEST_F(CAResultsTest, UrlInFlightIsLostOrHeardOfAgain)
{
    const CAURL other("http://h/other");
    results_.setInFlight(3, &other);
    results_.setInFlight(1, &other);
    results_.setInFlight(1, &url_);
    finish(200);
    results_.endRun(kNow, {.seconds = 7, .queueLeft = 3}, true);
    finish(200);
    const std::string log = endRun();
    EXPECT_THAT(log, testing::StartsWith(line("200", R"("unknown")")));
    EXPECT_THAT(log, testing::EndsWith("\"failed\",\"why\":\"run was over\"}\n"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
}

TEST_F(CAResultsTest, HalfALineStaysOpen)
{
    ASSERT_EQ(mkfifo(dir_.path("log").c_str(), 0600), 0);
    const int reader = open(dir_.path("log").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::array<char, 8192> text{};
    const ssize_t room = fcntl(reader, F_SETPIPE_SZ, 4096);
    for (ssize_t written = 0; written <= room; written += 100) {
        finish(200);
    }
    results_.flush();  // a part
    finish(200);
    results_.flush();  // nothing
    EXPECT_EQ(read(reader, text.data(), text.size()), room);
    endRun();
    EXPECT_EQ(read(reader, text.data(), text.size()), 1);
    EXPECT_EQ(text[0], '\n');
    close(reader);
}

TEST_F(CAResultsTest, LinesOfThreadsMix)
{
    std::string wanted;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 2000; ++i) {
        wanted += line("500", R"("failed","why":"status 500")");
        if (i % 500 == 0) {
            threads.emplace_back([this] {
                for (int n = 0; n < 500; ++n) {
                    finish(500);
                }
            });
        }
    }
    threads.clear();
    EXPECT_EQ(endRun(), wanted);
}

TEST_F(CAResultsTest, FailureIsSilentOrEndless)
{
    dir_.write("metrics", "old");
    std::filesystem::create_directory(dir_.path("metrics.tmp"));
    const std::pair<std::string, const char *> rows[] = {{dir_.path("no/log"), "2"},
                                                         {"/dev/full", "28"}};
    for (const auto &[path, error] : rows) {
        results_.setLog(path.c_str());
        trace();
        for (int i = 0; i < 1000; ++i) {
            finish(200);
        }
        endRun();
        EXPECT_EQ(trace(), "Results..... could not write \"" + path + "\"; errno=" + error +
                               ".\nMetrics..... could not write \"" + dir_.path("metrics") +
                               "\"; errno=17.\n");
    }
    EXPECT_EQ(dir_.read("metrics"), "old");
}

TEST_F(CAResultsTest, MetricsReplaceALinkOrAPipe)
{
    std::filesystem::create_directory(dir_.path("d"));
    std::filesystem::create_symlink("d/link", dir_.path("metrics"));
    std::filesystem::create_symlink(dir_.path("file"), dir_.path("d/link"));
    dir_.write("aim", "old");
    std::filesystem::create_symlink(dir_.path("aim"), dir_.path("file.tmp"));
    endRun();
    EXPECT_THAT(dir_.read("file"), testing::HasSubstr("refetchd_queue_left 3\n"));
    EXPECT_EQ(dir_.read("aim"), "old");
    std::filesystem::remove(dir_.path("file"));
    ASSERT_EQ(mkfifo(dir_.path("file").c_str(), 0600), 0);
    trace();
    endRun();
    EXPECT_THAT(trace(), testing::HasSubstr("is not a regular file"));
    EXPECT_TRUE(std::filesystem::is_fifo(dir_.path("file")));
}

TEST(CAResults, ProgressIsWrong)
{
    CAProgressClock clock;
    std::string text;
    for (const int second : {0, 9, 10, 11, 19, 20, 1, 10}) {
        std::array<char, 128> line{};
        CAFormatProgress(line.data(), line.size(), {45, 9, 8, 7, second, second == 20 ? 15 : 0});
        text += clock.isDue(second, 10) ? line.data() : "";
    }
    const std::string counts = "Progress.... 45 done, 9 succeeded, 8 queued, 7 busy, ";
    EXPECT_EQ(text, counts + "4.5 URLs/s, no limit\n" + counts + "2.2 URLs/s, 0 s left\n" + counts +
                        "4.5 URLs/s, no limit\n");
}

}  // namespace
