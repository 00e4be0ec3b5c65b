#include "HTSimplify.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "GuardedText.h"

namespace {

struct PathCase {
    const char *name;
    const char *path;
    const char *simple;

    friend void PrintTo(const PathCase &row, std::ostream *os) { *os << row.name; }
};

class Path : public testing::TestWithParam<PathCase> {};

TEST_P(Path, IsSimplifiedToAnotherOne)
{
    HTPool pool;
    const GuardedText path(GetParam().path);
    HTSimplify(path.data(), &pool);
    EXPECT_STREQ(path.data(), GetParam().simple);
}

const std::array<PathCase, 18> kPaths = {{
    {"NothingToDo", R"(/a\b/c)", R"(/a\b/c)"},
    {"DotsInAUrl", "http://h:80/a/./b/../c", "http://h/a/c"},
    {"FtpPortStays", "ftp://h:21/x", "ftp://h:21/x"},
    {"HttpsPort", "HTTPS://h:443/", "HTTPS://h/"},
    {"PortOfAnotherScheme", "https://h:80/x", "https://h:80/x"},
    {"PortWraps32Bits", "http://h:4294967376/x", "http://h:4294967376/x"},
    {"NestedUrl", "http://a:80/http://b:80/x/../y", "http://a/http://b/y"},
    {"NestedBehindAPath", "a/http://b:80/x", "a/http:/b:80/x"},
    {"FileHasNoHost", "file://a/../b", "file://b"},
    {"BackslashesAndRuns", R"(/a\b//c/)", "/a/b/c/"},
    {"LastNameCancelled", "/a/b/..", "/a"},
    {"OnlyTheRootIsLeft", "/a/../", "/"},
    {"CancelsEarlierFirst", "/a/../../b", "/../b"},
    {"RelativeKeepsItsLastName", "a/..", "a/.."},
    {"RelativeTakesTheRightmostFirst", "a/../b/..", "a/.."},
    {"LeadingDotsAnchor", "../a/..", ".."},
    {"LeadingDotStays", "./a/../b/.", "./b"},
    {"DotNamesAreNames", "/.a/..b/.../../", "/.a/..b/"},
}};
INSTANTIATE_TEST_SUITE_P(HTSimplify, Path, testing::ValuesIn(kPaths),
                         [](const auto &row) { return std::string(row.param.name); });

// A walk back from every ".." took minutes for a path of this size.
TEST(HTSimplify, HostilePathTakesQuadraticTime)
{
    for (const char *const unit : {"../", "a/../", "http://h:80/"}) {
        HTPool pool;
        std::string path = "x/";
        while (path.size() < 1'000'000) {
            path.insert(path.size(), unit);
        }
        for (std::string text : {path, path.substr(2), "/" + path}) {
            HTSimplify(text.data(), &pool);
            EXPECT_LE(std::string(text.c_str()).size(), text.size());
        }
    }
}

}  // namespace
