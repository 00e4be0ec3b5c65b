#include "CAURL.h"

#include "AgentTest.h"

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
    EXPECT_EQ(trace().substr(0, 28), "Simplify.... path down to \"/");
}

INSTANTIATE_TEST_SUITE_P(
    CAURL, Join,
    testing::Values(JoinRow{"Sibling", "b.html", "http://h/dir/a.html", "http://h/dir/b.html"},
                    JoinRow{"InDirectory", "x", "http://h/dir/", "http://h/dir/x"},
                    JoinRow{"AtRoot", "x", "http://h/", "http://h/x"},
                    JoinRow{"Up", "../x", "http://h/a/b/c", "http://h/a/x"},
                    JoinRow{"UpTooFar", "../x", "http://h/a", "http://h/../x"},
                    JoinRow{"DefaultPort", "http://h:80/p#top", "", "http://h/p"},
                    JoinRow{"OtherPort", "http://h:8080/", "", "http://h:8080/"},
                    JoinRow{"GopherPort", "gopher://g:70/", "", "gopher://g/"},
                    JoinRow{"DotBeforePort", "http://h.:8080/", "", "http://h/"},
                    JoinRow{"DotWithoutPort", "http://h./", "", "http://h./"},
                    JoinRow{"DotBeforeDefaultPort", "http://h.:80/", "", "http://h./"},
                    JoinRow{"SchemeLessHostIsAPath", "//other/p", "http://h/", "http://h/other/p"},
                    JoinRow{"QueryAlone", "?q=1", "http://h/dir/page", "http://h/dir/?q=1"},
                    JoinRow{"SlashInBaseQuery", "x", "http://h/d/p?a/b", "http://h/d/x"},
                    JoinRow{"Empty", "", "http://h/d/p", "http://h/d/p"},
                    JoinRow{"OtherScheme", "ftp:x", "http://h/d/p", "/x"},
                    JoinRow{"OtherHostTakesNoPath", "http://g", "http://h/d/p", "http://g/"},
                    JoinRow{"SameHostTakesThePath", "http://h:80", "http://h/d/p", "http://h/d/p"},
                    JoinRow{"SchemeAlone", "http:x", "http://h/d/p", "http://h/d/x"},
                    JoinRow{"Nothing", "", "", "/"}, JoinRow{"PathAlone", "/p/./q", "", "/p/q"}),
    rowName);

class CAURLTest : public AgentTest {};

TEST_F(CAURLTest, LinkTakesOverSourceAndDepth)
{
    CAURL parent("http://h/d/p");
    parent.setSource(SOURCE_HITS);
    parent.setDepth(3);
    const CAURL link("x", &parent);
    EXPECT_EQ(link.source(), SOURCE_HITS);
    EXPECT_EQ(link.depth(), 3);
    EXPECT_STREQ(link.transparentStringitize(), "/d/x");
    EXPECT_EQ(link.hits(), 1);
}

struct InterestRow : Row {
    const char *directives;
    const char *text;  // found in http://h/
    int depth;
    const char *reason;  // traced when it is rejected
};

class Interest : public AgentTestWith<InterestRow> {};

TEST_P(Interest, IsMisjudged)
{
    configure(std::string("delvedepth 1\n") + GetParam().directives);
    const CAURL parent("http://h/");
    CARecordProcessed(&parent);
    ht.addHits("limited", 2 - ht.getHits("limited"));
    CAURL found(GetParam().text);
    found.setDepth(GetParam().depth);
    trace();
    EXPECT_EQ(found.interesting(&parent), *GetParam().reason == '\0' ? 1 : 0);
    EXPECT_NE(trace().find(GetParam().reason), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    CAURL, Interest,
    testing::Values(
        InterestRow{"AtTheDepth", "", "http://h/x", 1, ""},
        InterestRow{"TooDeepBeforeTheFilters", "ignoreurl *\n", "http://h/x", 2,
                    "URL......... http://h/x is too deep (2 > 1).\n"},
        InterestRow{"Ignored", "ignoreurl *x\n", "http://h/x", 0,
                    "Ignoring.... URL \"http://h/x\" - matched pattern \"*x\".\n"},
        InterestRow{"Query", "", "http://h/?x", 0,
                    "URL......... http://h/?x will be ignored: query string.\n"},
        InterestRow{"OtherHost", "", "http://g/x", 0,
                    "URL......... http://g/x will be ignored: jump from host h to g.\n"},
        InterestRow{"HostInCapitalsIsAnother", "", "http://H/x", 0, "jump from host h to H.\n"},
        InterestRow{"OtherHostAllowed", "delveacrosshosts on\n", "http://g/x", 0, ""},
        InterestRow{"Known", "", "http://h/", 0,
                    "URL......... http://h/ will be ignored: already processed.\n"},
        InterestRow{"AtTheLimit", "delveacrosshosts on\nmaxhosturls 2 lim*\n", "http://limited/x",
                    0, "Host........ limited: 2 hits, 2 max --> ignoring \"http://limited/x\".\n"},
        InterestRow{"BelowTheLimit", "delveacrosshosts on\nmaxhosturls 3 LIM*\n",
                    "http://limited/x", 0, ""},
        InterestRow{"FirstLimitCounts", "delveacrosshosts on\nmaxhosturls 9\nmaxhosturls 1 lim*\n",
                    "http://limited/x", 0, ""}),
    rowName);

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
