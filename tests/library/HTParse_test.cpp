#include "HTParse.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "GuardedText.h"

namespace {

struct UrlRow {
    const char *name;
    const char *url;
    std::array<const char *, 5> parts;  // in the order of HTURIParts

    friend void PrintTo(const UrlRow &row, std::ostream *out) { *out << row.name; }
};

class Url : public testing::TestWithParam<UrlRow> {};

TEST_P(Url, IsSplitIntoOtherParts)
{
    const GuardedText url(GetParam().url);
    char stale = '!';
    HTURIParts parts = {&stale, &stale, &stale, &stale, &stale};
    HTParse_scan(url.data(), &parts, std::strlen(url.data()));
    const auto &[access, host, absolute, relative, anchor] = GetParam().parts;
    EXPECT_STREQ(parts.access, access);
    EXPECT_STREQ(parts.host, host);
    EXPECT_STREQ(parts.absolute, absolute);
    EXPECT_STREQ(parts.relative, relative);
    EXPECT_STREQ(parts.anchor, anchor);
}

const std::array<UrlRow, 10> kRows = {{
    {"TwoLettersAreAScheme", "ab:c", {"ab", nullptr, nullptr, "c", nullptr}},
    {"ColonInTheAnchor", "abc#d:e", {nullptr, nullptr, nullptr, "abc", "d:e"}},
    {"Whole", "http://h:80/p/q?r#f", {"http", "h:80", "p/q?r", nullptr, "f"}},
    {"PseudoScheme", "URL:http://h/p#f", {"http", "h", "p", nullptr, "f"}},
    {"PseudoSchemeTwiceAnyCase", "url:Url:ftp:x", {"ftp", nullptr, nullptr, "x", nullptr}},
    {"HostNeedsAScheme", "//h/p", {nullptr, nullptr, "/h/p", nullptr, nullptr}},
    {"PseudoSchemeIsNone", "URL://h/p", {nullptr, nullptr, "/h/p", nullptr, nullptr}},
    {"OneLetterIsNoScheme", "a:b/c", {nullptr, nullptr, nullptr, "a:b/c", nullptr}},
    {"ColonBehindASlash", "a/b:c", {nullptr, nullptr, nullptr, "a/b:c", nullptr}},
    {"FirstHashBegins", "/a#b#c", {nullptr, nullptr, "a", nullptr, "b"}},
}};
INSTANTIATE_TEST_SUITE_P(HTParse, Url, testing::ValuesIn(kRows), testing::PrintToStringParamName());

}  // namespace
