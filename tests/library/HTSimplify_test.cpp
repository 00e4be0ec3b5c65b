#include "HTSimplify.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

// A walk back from every ".." took minutes for a path of this size; the runner ends such a test.
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
