#include "HTSimplify.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "GuardedText.h"

namespace {

struct PathRow {
    const char *name;
    const char *path;
    const char *simple;

    friend void PrintTo(const PathRow &row, std::ostream *out) { *out << row.name; }
};

class Path : public testing::TestWithParam<PathRow> {};

TEST_P(Path, IsSimplifiedToAnotherOne)
{
    HTPool pool;
    const GuardedText path(GetParam().path);
    HTSimplify(path.data(), &pool);
    EXPECT_STREQ(path.data(), GetParam().simple);
}

const std::array<PathRow, 16> kRows = {{
    {"NothingToDo", R"(/a\b/c)", R"(/a\b/c)"},
    {"FtpPortStays", "ftp://h:21/x", "ftp://h:21/x"},
    {"HttpsPort", "HTTPS://h:443/", "HTTPS://h/"},
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
INSTANTIATE_TEST_SUITE_P(HTSimplify, Path, testing::ValuesIn(kRows),
                         testing::PrintToStringParamName());

// A walk back from every ".." took minutes for a path of this size; the runner ends such a test.
TEST(HTSimplify, HostilePathTakesQuadraticTime)
{
    for (const char *const unit : {"../", "a/../", "http://h:80/"}) {
        for (std::string path : {"", "x/", "/"}) {
            while (path.size() < 1'000'000) {
                path += unit;
            }
            HTPool pool;
            HTSimplify(path.data(), &pool);
            EXPECT_LE(std::strlen(path.c_str()), path.size());
        }
    }
}

}  // namespace
