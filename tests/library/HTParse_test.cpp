#include "HTParse.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "GuardedText.h"

namespace {

struct UrlCase {
    const char *name;
    const char *url;
    std::array<const char *, 5> parts;  // access, host, absolute, relative, anchor

    friend void PrintTo(const UrlCase &row, std::ostream *os) { *os << row.name; }
};

class Url : public testing::TestWithParam<UrlCase> {};

TEST_P(Url, IsSplitIntoOtherParts)
{
    const GuardedText url(GetParam().url);
    char stale = '!';
    HTURIParts parts = {&stale, &stale, &stale, &stale, &stale};
    HTParse_scan(url.data(), &parts, std::strlen(url.data()));
    const std::array<const char *, 5> found = {parts.access, parts.host, parts.absolute,
                                               parts.relative, parts.anchor};
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_STREQ(found[i], GetParam().parts[i]) << "part " << i;
    }
}

const std::array<UrlCase, 10> kUrls = {{
    {"TwoLettersAreAScheme", "ab:c", {"ab", nullptr, nullptr, "c", nullptr}},
    {"ColonInTheAnchor", "abc#d:e", {nullptr, nullptr, nullptr, "abc", "d:e"}},
    {"Whole", "http://h:80/p/q?r#f", {"http", "h:80", "p/q?r", nullptr, "f"}},
    {"PseudoScheme", "URL:http://h/p#f", {"http", "h", "p", nullptr, "f"}},
    {"PseudoSchemeTwiceAnyCase", "url:Url:ftp:x", {"ftp", nullptr, nullptr, "x", nullptr}},
    {"HostNeedsAScheme", "//h/p", {nullptr, nullptr, "/h/p", nullptr, nullptr}},
    {"NeitherDoesThePseudoSchemeGiveOne",
     "URL://h/p",
     {nullptr, nullptr, "/h/p", nullptr, nullptr}},
    {"OneLetterIsNoScheme", "a:b/c", {nullptr, nullptr, nullptr, "a:b/c", nullptr}},
    {"ColonBehindASlash", "a/b:c", {nullptr, nullptr, nullptr, "a/b:c", nullptr}},
    {"FirstHashBegins", "/a#b#c", {nullptr, nullptr, "a", nullptr, "b"}},
}};
INSTANTIATE_TEST_SUITE_P(HTParse, Url, testing::ValuesIn(kUrls),
                         [](const auto &row) { return std::string(row.param.name); });

}  // namespace
