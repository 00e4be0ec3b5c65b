#include "HTSimplify.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>

#include "GuardedText.h"

namespace {

TEST(HTSimplify, PathGetsAnotherForm)
{
    std::istringstream rows(R"(
        /a/./b/../c  /a/c        /a/b/..  /a             /a/../  /
        /a/../../b  /../b        /a\b//c\  /a/b/c/       /a\b/c  /a\b/c
        ./a/../b/.  ./b          .\a/../b  .\b           ../a/..  ..
        a/b/../..  a/..          a/../b/..  a/..         a/..  a/..
        a/b:c  a/b:c             http://h//b  http://h/b  http://h/../b  http://h/../b
        HTTPS://h:443/  HTTPS://h/         gopher://g:070/  gopher://g/
        file://a/../b  file://b            file://h:80/\a/../b  file://h:80/b
        http://:80/httf://h  http:///httf://h    a/http://b:80/x  a/http:/b:80/x
        /.a/..b/.../../  /.a/..b/          http://h:4294967376/  http://h:4294967376/
        ftp://h:21/http:/h:80/https://h:80/      ftp://h:21/http:/h:80/https://h:80/
        http://a:80/https://b:443/gopher://c:70  http://a/https://b/gopher://c)");
    for (std::string path, form; rows >> path >> form;) {
        const GuardedText text(path);
        HTPool pool;
        HTSimplify(text.data(), &pool);
        EXPECT_EQ(text.data(), form) << path;
    }
}

// The place of what is to be simplified does not matter, nor the length of the path.
TEST(HTSimplify, MarkIsMissed)
{
    for (std::size_t before = 1; before < 40; ++before) {
        for (std::size_t behind = 1; behind < 40; ++behind) {
            const std::string start = "/" + std::string(before, 'x');
            const std::string end(behind, 'y');
            const std::pair<std::string, std::string> rows[] = {
                {start + "//" + end, start + "/" + end},
                {start + "/./" + end, start + "/" + end},
                {start + "/../" + end, "/" + end},
                {"/" + end + start + "/..", "/" + end},
                {"a/http:/" + start + "/" + end, "a/http:" + start + "/" + end}};
            for (const auto &[path, form] : rows) {
                const GuardedText text(path);
                HTPool pool;
                HTSimplify(text.data(), &pool);
                EXPECT_EQ(text.data(), form) << path;
            }
        }
    }
}

// A walk back from every ".." took minutes for a path of this size; the runner's time-out ends such
// a test.
TEST(HTSimplify, HostilePathTakesQuadraticTime)
{
    for (const char *const unit : {"../", "a/../", "http://h:80/"}) {
        std::string path;
        while (path.size() < 1'000'000) {
            path += unit;
        }
        HTPool pool;
        HTSimplify(path.data(), &pool);
        EXPECT_LE(std::strlen(path.c_str()), path.size());
    }
}

}  // namespace
