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
    urlQueue->orderByDepth(0);
    urlQueue->hold();
    CAURL page("http://h/");
    CAParseHTML parser(&page);
    feed(&parser, "<a href=\"x\"><a href=\"y\"><frame src=\"x\">", {});  // without room for it
    CAURL again("http://h/x");
    EXPECT_FALSE(urlQueue->enqueueFound(&again));
    EXPECT_EQ(AgentState::drain(), std::vector<std::string>()) << "held";
    urlQueue->release();
    CATicket ticket;
    const std::unique_ptr<CAURL> first(static_cast<CAURL *>(urlQueue->dequeue(&ticket)));
    EXPECT_EQ(first->stringitize() + std::to_string(first->depth()), "http://h/x0");
    EXPECT_EQ(AgentState::drain(), std::vector<std::string>()) << "in work";
    urlQueue->finished(ticket);
    EXPECT_EQ(AgentState::drain(), std::vector<std::string>{"1 http://h/y"});
}

struct OrderRow : Row {
    // "+a1" puts URL a at depth 1, "@9" lets 9 seconds pass, "a" takes a, "!a" takes it early, "-"
    // takes none (a millisecond earlier), "/a" finishes it, "^a" puts it aside and "<a" takes it
    // back, and "$" ends the run.
    std::string steps;
    std::int64_t wait = 30;
};

class Order : public AgentTestWith<OrderRow> {};

TEST_P(Order, LosesALevelOrWaitsForEver)
{
    CADepthOrder order;
    std::map<char, CADepthOrder::Taken> all;
    std::vector<std::unique_ptr<CAURL>> urls;
    std::int64_t now = 0;
    order.waitAtMost(GetParam().wait * 1000);
    std::istringstream steps(GetParam().steps);
    for (std::string step; steps >> step;) {
        const char kind = step.front();
        const char last = step.back();
        if (kind == '+') {
            urls.push_back(std::make_unique<CAURL>(("http://h/" + step.substr(1, 1)).c_str()));
            urls.back()->setDepth(last - '0');
            order.put(urls.back().get());
        } else if (kind == '@') {
            now += std::stol(step.substr(1)) * 1000;
        } else if (kind == '/') {
            order.finished(all[last].ticket);
        } else if (kind == '^') {
            order.putAside(all[last]);
        } else if (kind == '<') {
            all[last].ticket = order.takeBack(*all[last].url, now);
        } else if (kind == '$') {
            order.closeLevels();
        } else {
            const CADepthOrder::Taken taken = order.take(now - (kind == '-' ? 1 : 0));
            const std::string text = taken.url == nullptr ? "-" : taken.url->stringitize();
            ASSERT_EQ(text.back(), last) << step << " of " << GetParam().steps;
            ASSERT_EQ(taken.overtaken > 0, kind == '!') << step;
            all[last] = taken;
        }
    }
}

const OrderRow kOrders[] = {
    {"WaitsForAnAnswer", "+a0 +b1 a - @30 !b"},
    {"NoLimit", "+a0 +b1 a @99999 - /a b", 0},
    {"CountsFromTheLastRequest", "+a0 +b0 +c1 a @20 b @30 - !c"},
    {"CountsAgainForTheNextLevel", "+a0 +b1 +c2 a @30 !b @30 - !c"},
    {"AnsweredInTime", "+a0 +b0 +c1 a b @20 /b - @9 - /a c"},
    {"LateAnswerClosesTheNextLevel", "+a0 +b1 +c1 +d2 a @30 !b c /a - /b - /c d"},
    {"LateAnswerClosesItsOwnLevel", "+a0 +b1 a @30 !b +c0 +d1 c /a - /c d"},
    {"LinksOfALateAnswer", "+a0 +b2 a @30 !b +c1 +d3 c - /a - /b - /c d"},
    {"AsideHoldsBack", "+a0 +b0 +c1 a b ^b /a - <b - /b c"},
    {"AsideIsOvertaken", "+a0 +b0 +c1 +d2 a b ^b @29 - @1 !c <b - /c d"},
    {"RunBeforeHoldsBack", "+a0 a $ +b0 +c1 b - /b c"},
    {"RunBeforeClosesALevel", "+a0 a $ +b0 +c1 b /a - /b c"},
};
INSTANTIATE_TEST_SUITE_P(CADepthOrder, Order, testing::ValuesIn(kOrders), rowName);

struct HostRow : Row {
    // "+ax1" puts URL a of host x at depth 1, "=ax3" at rank 3; "a" takes a, "-" takes none, "/a"
    // finishes it, "~a9" answers it ten times after 9 ms each, "#3" counts 3, "$3" drains 3.
    std::string steps;
    CAHostLimits limits = {.connections = 2, .clients = 9};
    bool isByDepth = false;
};

class Host : public AgentTestWith<HostRow> {};

TEST_P(Host, GetsMoreAtATimeOrHoldsBackOthers)
{
    std::map<char, CATicket> tickets;
    urlQueue->limitHosts(GetParam().limits);
    if (GetParam().isByDepth) {
        urlQueue->orderByDepth(0);
    }
    std::istringstream steps(GetParam().steps);
    for (std::string step; steps >> step;) {
        const char kind = step.front();
        const int last = step.back() - '0';
        if (kind == '+' || kind == '=') {
            auto *const url = new CAURL((std::string("http://") + step[2] + "/" + step[1]).c_str());
            if (kind == '=') {
                ASSERT_TRUE(urlQueue->enqueueInLane(url, static_cast<std::size_t>(last)));
            } else {
                url->setDepth(last);
                urlQueue->enqueue(url);
            }
        } else if (kind == '/') {
            urlQueue->finished(tickets[step[1]]);
        } else if (kind == '~') {
            for (int i = 0; i < 10; ++i) {
                urlQueue->answered(tickets[step[1]], std::stol(step.substr(2)));
            }
        } else if (kind == '#') {
            ASSERT_EQ(urlQueue->getLength(), last) << GetParam().steps;
        } else if (kind == '$') {
            for (int i = 0; i <= last; ++i) {
                const std::unique_ptr<CAURL> url(static_cast<CAURL *>(urlQueue->drain()));
                EXPECT_EQ(url == nullptr, i == last) << GetParam().steps;
            }
            urlQueue->closeRun();
        } else {
            CATicket ticket;
            const std::unique_ptr<CAURL> url(static_cast<CAURL *>(urlQueue->dequeue(&ticket)));
            ASSERT_EQ(url == nullptr ? '-' : url->stringitize()[9], kind) << GetParam().steps;
            tickets[kind] = ticket;
        }
    }
    while (const auto left = std::unique_ptr<CAURL>(static_cast<CAURL *>(urlQueue->drain()))) {
    }
}

const CAHostLimits kSlow = {.clients = 4, .latencyMillis = 100};

const HostRow kHosts[] = {
    {"AtMostTwo", "+ax0 +bx0 +cx0 +dx0 a b - #2 /a c - /c d #0 -"},
    {"OthersGoOn", "+ax0 +bx0 +cx0 +dy0 +ex0 +fy0 a b d f - #2 /d - /b c /a e"},
    {"MoreThanClients", "+ax0 +bx0 +cx0 a b - #1", {.connections = 5, .clients = 2}},
    {"DrainsAllThatWait", "+ax0 +bx0 +cx0 +dx0 +ey0 a b e - /a $2 +gx0 +hx0 g - #1 /b h $0"},
    {"SlowHostLosesClients", "+ax0 +bx0 +cx0 +dx0 a b c ~a101 /a - /b d - /c", kSlow},
    {"SlowHostKeepsOne", "+ax0 +bx0 +cx0 +dx0 a ~a900 b ~b900 ~b900 - /a - /b c - /c d", kSlow},
    {"FastHostGetsThemBack", "+ax0 +bx0 +cx0 +dx0 a b ~a900 /a - ~b49 c - ~b49 d", kSlow},
    {"NotWellBelow", "+ax0 +bx0 +cx0 a b ~a900 /a - ~b51 -", kSlow},
    {"HostsApart", "+ax0 +bx0 +cy0 +dy0 a b ~a900 c d ~b9 ~b9", kSlow},
    {"LevelWaits",
     "+ax0 +bx0 +cx0 +dy1 +ex1 a b - /a c - /b - /c d e",
     {.connections = 2, .clients = 9},
     true},
    {"LevelGoesOn",
     "+ax0 +bx0 +cy0 +dx1 a c - /c - /a b - /b d",
     {.connections = 1, .clients = 9},
     true},
    {"DrainsALevel",
     "+ax0 +bx0 +cx0 +dx1 a - /a $3 +ex1 e",
     {.connections = 1, .clients = 9},
     true},
    {"LanesByRank", "=ax5 =bx2 =cx9 =dx2 b d a c -", {.clients = 9}},
    {"LaneInUse", "+ax0 +bx0 +cx0 a b =dx0 =ex9 d c e", {.clients = 9}},
};
INSTANTIATE_TEST_SUITE_P(CAQueue, Host, testing::ValuesIn(kHosts), rowName);

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
