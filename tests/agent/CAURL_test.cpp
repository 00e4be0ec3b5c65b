#include "url/CAURL.h"

#include "AgentTest.h"
#include "CArun.h"
#include "Feed.h"
#include "parse/CAparseHTML.h"
#include "url/CAhost.h"

namespace {

struct JoinRow : Row {
    const char *text;
    const char *base;
    const char *form;
};

class Join : public AgentTestWith<JoinRow> {};

TEST_P(Join, GivesAnotherForm)
{
    const CAURL url(GetParam().text, GetParam().base);
    EXPECT_STREQ(url.stringitize(), GetParam().form);
}

// What holds of any form, such as that it has no usual port, is for the fuzz target.
const JoinRow kJoins[] = {
    {"Sibling", "b.html", "http://h/dir/a.html", "http://h/dir/b.html"},
    {"InDirectory", "x", "http://h/dir/", "http://h/dir/x"},
    {"AtRoot", "x", "http://h/", "http://h/x"},
    {"Up", "../x", "http://h/a/b/c", "http://h/a/x"},
    {"UpTooFar", "../x", "http://h/a", "http://h/../x"},
    {"DotBeforePort", "http://h.:8080/", "", "http://h/"},
    {"DotWithoutPort", "http://h./", "", "http://h./"},
    {"DotBeforeDefaultPort", "http://h.:80/", "", "http://h./"},
    {"SchemeLessHostIsAPath", "//other/p", "http://h/", "http://h/other/p"},
    {"QueryAlone", "?q=1", "http://h/dir/page", "http://h/dir/?q=1"},
    {"SlashInBaseQuery", "x", "http://h/d/p?a/b", "http://h/d/x"},
    {"Empty", "", "http://h/d/p", "http://h/d/p"},
    {"OtherScheme", "ftp:x", "http://h/d/p", "/x"},
    {"OtherHostTakesNoPath", "http://g", "http://h/d/p", "http://g/"},
    {"SameHostTakesThePath", "http://h:80", "http://h/d/p", "http://h/d/p"},
    {"SchemeAlone", "http:x", "http://h/d/p", "http://h/d/x"},
    {"OneLetterIsNoScheme", "a:b", "http://h/d/p", "http://h/d/a:b"},
    {"PseudoScheme", "url:URL:http://g/", "http://h/d/p", "http://g/"},
    {"Nothing", "", "", "/"},
};
INSTANTIATE_TEST_SUITE_P(CAURL, Join, testing::ValuesIn(kJoins), rowName);

struct InterestRow : Row {
    const char *directives;
    const char *text;  // found in http://h/ at depth 1
    int answer;
    const char *message;
};

class Interest : public AgentTestWith<InterestRow> {};

TEST_P(Interest, IsMisjudged)
{
    configure(std::string("delvedepth 1\n") + GetParam().directives);
    CAURL parent("http://h/");
    CARecordProcessed(&parent);
    parent.setDepth(1);
    ht.addHits("limited", 2 - ht.getHits("limited"));
    ht.addHits("much", INT32_MAX);
    ht.addHit("much");
    const CAURL found(GetParam().text, &parent);
    const std::size_t held = HTThread_context()->pool.held();
    trace();
    EXPECT_EQ(found.interesting(&parent), GetParam().answer);
    EXPECT_NE(trace().find(GetParam().message), std::string::npos);
    EXPECT_EQ(HTThread_context()->pool.held(), held);
}

const InterestRow kInterests[] = {
    {"AtTheDepth", "", "http://h/x", 1, ""},
    {"TooDeepBeforeTheFilters", "delvedepth 0\nignoreurl *\n", "http://h/x", 0,
     "URL......... http://h/x is too deep (1 > 0).\n"},
    {"Ignored", "ignoreurl *x\nignoreurl *y\n", "http://h/x", 0,
     "Ignoring.... URL \"http://h/x\" - matched pattern \"*x\".\n"},
    {"CaseCounts", "ignoreurl *X\nonlyurl *x\n", "http://h/x", 1,
     "Passing..... only-check for URL \"http://h/x\" - matched pattern \"*x\".\n"},
    {"NothingPasses", "onlyurl \"\"\n", "http://h/x", 0, ""},
    {"LimitOfNoPattern", "delveacrosshosts on\nmaxhosturls 1 \"\"\n", "http://limited/x", 0, ""},
    {"LeftOut", "onlyurl http://g/*\n", "http://h/x", 0, ""},
    {"Query", "", "http://h/?x", 0, "URL......... http://h/?x will be ignored: query string.\n"},
    {"QueryDecoded", "cachequeries on *x?*\n", "http://h/%78?q", 1, ""},
    {"QueryNeedsTheWholeText", "cachequeries on /x*\n", "http://h/x?q", 0, "query string.\n"},
    {"OtherHost", "", "http://g/x", 0,
     "URL......... http://g/x will be ignored: jump from host h to g.\n"},
    {"HostInCapitalsIsAnother", "", "http://H/x", 0, "jump from host h to H.\n"},
    {"Known", "", "http://h/", 0, "URL......... http://h/ will be ignored: already processed.\n"},
    {"AtTheLimit", "delveacrosshosts on\nmaxhosturls 2 lim*\n", "http://limited/x", 0,
     "Host........ limited: 2 hits, 2 max --> ignoring \"http://limited/x\".\n"},
    {"BelowTheLimit", "delveacrosshosts on\nmaxhosturls 3 LIM*\n", "http://limited/x", 1, ""},
    {"LimitInCapitals", "delveacrosshosts on\nmaxhosturls 1 LIM*\n", "http://limited/x", 0, ""},
    {"CountStaysAtTheHighest", "delveacrosshosts on\nmaxhosturls 2147483647\n", "http://much/x", 0,
     "Host........ much: 2147483647 hits, 2147483647 max"},
    {"HostWithoutHits", "delveacrosshosts on\nmaxhosturls 1\n", "http://MUCH/x", 1,
     "Never....... hit site \"MUCH\".\n"},
    {"FirstLimitCounts", "delveacrosshosts on\nmaxhosturls 9\nmaxhosturls 1 lim*\n",
     "http://limited/x", 1, ""},
};
INSTANTIATE_TEST_SUITE_P(CAURL, Interest, testing::ValuesIn(kInterests), rowName);

// Does what a worker that is busy over the end of a run does between the two flushes.
ssize_t findLink(void *cookie, const char *text, std::size_t size)
{
    if (std::string_view(text, size).starts_with("Flushing.... remove all non-processed")) {
        auto *const url = static_cast<CAURL *>(cookie);
        CARecordProcessed(url);
        urlQueue->enqueue(url);
    }
    return static_cast<ssize_t>(size);
}

TEST_F(AgentTest, LinkFoundBetweenTheFlushesIsLostToTheNextRun)
{
    auto *const url = new CAURL("http://h/late");
    std::fclose(ac.traceStream);
    ac.traceStream = fopencookie(url, "w", {nullptr, findLink, nullptr, nullptr});
    std::setvbuf(ac.traceStream, nullptr, _IOLBF, 0);
    ac.repeatCount = 2;
    CACleanup();
    EXPECT_EQ(urlQueue->empty(), 1);
    EXPECT_EQ(HashLookup(processedUrls, "http://h/late"), nullptr);
}

TEST_F(AgentTest, PageWaitsAtItsGreaterDepthOrIsRequestedTwiceOrBeforeTheSeedsAreIn)
{
    configure("delvedepth 1\nmaxqueuedepth 2\n");
    urlQueue->orderByDepth();
    urlQueue->hold();
    CAURL page("http://h/");
    CAParseHTML parser(&page);
    feed(&parser, "<a href=\"x\"><a href=\"y\"><frame src=\"x\">", {});  // without room for it
    CAURL again("http://h/x");
    EXPECT_FALSE(urlQueue->enqueueFound(&again));
    EXPECT_EQ(AgentState::drain(), std::vector<std::string>()) << "held";
    urlQueue->release();
    EXPECT_EQ(AgentState::drain(), std::vector<std::string>{"0 http://h/x"});
    urlQueue->finished(0);
    EXPECT_EQ(AgentState::drain(), std::vector<std::string>{"1 http://h/y"});
}

TEST(CAQueue, EmptiesOneOfItsTwentyLanesBeforeTheNext)
{
    int numbers[39];
    CAQueue queue(1);
    const auto put = [&](int count) {
        for (int i = 0; i < count; ++i) {
            queue.enqueue(&numbers[i]);
        }
    };
    put(39);
    for (int i = 0; i < 39; ++i) {
        if (i == 20) {
            put(2);  // after the others, though the second goes to the first lane
        }
        EXPECT_EQ(queue.dequeue(), &numbers[i / 2 + i % 2 * 20]) << i;
    }
    EXPECT_EQ(queue.dequeue(), &numbers[0]);
    EXPECT_EQ(queue.dequeue(), &numbers[1]);
    EXPECT_EQ(queue.dequeue(), nullptr);
    put(20);
    EXPECT_EQ(queue.dequeue(), &numbers[0]) << "dealt out from the first lane again";
    EXPECT_EQ(queue.getLength(), 19);
    EXPECT_EQ(queue.getTotalEnqueued(), 61);
}

}  // namespace
