#include "HTWild.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "HTString.h"

namespace {

using Pattern = std::unique_ptr<HTPattern, decltype(&HTPattern_free)>;

Pattern compiled(const std::string &text)
{
    return {HTPattern_new(text.c_str()), HTPattern_free};
}

TEST(HTWild, StarStandsForAnotherText)
{
    // How, pattern, text, and what the pattern's stars make of "<*|*|*>"; "-" is no match.
    std::istringstream rows(R"(
        exact  ab*       abcd      <cd||>           exact  **a**        bac          <b|c|>
        exact  *ab*cd    abxcdabcdxcd  <|xcdabcdx|>
        exact  *a*b*c*d  1a2b3c4d  <1|2|3>          exact  *aa          aaa          -
        exact  a\**      a*b       <b||>            exact  *abc         c            -
        exact  *.gif     a.GIF     -                any    *.giF        a.GIf        <a||>
        exact  *         /~u       -                exact  *u           file:/~u     -
        exact  */~*      x/~u      <x|u|>           exact  file:/~*     file:/~u     <u||>
        exact  http://h/*    http://h/~u  -         exact  http://h/*u  http://h/~u  -
        exact  http://h/*~u  http://h/~u  <||>      exact  *:*          http://h/~u  <http|//h/~u|>
        url    /*        /~u       <~u||>           url    a+b*         a%2bb%2      <%2||>
        url    *1*       %41%31    <%41||>          url    *%4          a%4          <a||>
        url    a?        a%4g      -                url    *q=100%      ?q=100%25    <?||>
        url    *%25*     a%25b     <a|b|>           url    *%25         a%2525       <a||>
        url    %2525     %25%32%35  <||>            url    %*%          %25%25       <25||>)");
    const Pattern fill = compiled("<*|*|*>");
    for (std::string how, text, star, filled; rows >> how >> star >> text >> filled;) {
        const Pattern pattern = compiled(star);
        HTPool pool;
        const char *const match =
            how == "url"
                ? HTPattern_url_match(pattern.get(), fill.get(), text.c_str(), &pool)
                : HTPattern_match(pattern.get(), fill.get(), text.c_str(), how == "exact", &pool);
        EXPECT_EQ(match == nullptr ? "-" : match, filled) << star << " " << text;
    }
    EXPECT_STREQ(HeapString(HTPattern_stringitize(compiled(R"(a**b\*\c*\)").get())).get(),
                 "a*b*c*\n");
}

}  // namespace
