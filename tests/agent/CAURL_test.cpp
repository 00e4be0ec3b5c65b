#include "url/CAURL.h"

#include "AgentTest.h"
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
    {"FirstLimitCounts", "delveacrosshosts on\nmaxhosturls 9\nmaxhosturls 1 lim*\n",
     "http://limited/x", 1, ""},
};
INSTANTIATE_TEST_SUITE_P(CAURL, Interest, testing::ValuesIn(kInterests), rowName);

class CAURLTest : public AgentTest {};

TEST_F(CAURLTest, HostCountsSaturateAndUnknownHostsStayUnknown)
{
    EXPECT_EQ(ht.getHits("never"), 0);
    EXPECT_EQ(ht.getHits("never"), 0);
    EXPECT_EQ(trace(), "Never....... hit site \"never\".\nNever....... hit site \"never\".\n");
    ht.addHits("much", INT32_MAX);
    ht.addHit("much");
    EXPECT_EQ(ht.getHits("much"), INT32_MAX);
    EXPECT_EQ(ht.getHits("MUCH"), 0);
}

}  // namespace
