#include "base/CAwhen.h"

#include <gtest/gtest.h>

#include <climits>
#include <sstream>

#include "GuardedText.h"
#include "HTString.h"

namespace {

std::string flag(char *text)
{
    return positive(text) ? "yes" : negative(text) ? "no" : "neither";
}
std::string when(char *text)
{
    return CAWhenString(CAParseWhen(text));
}
std::string duration(char *text)
{
    long seconds = -1;
    return parse_time(text, 10, &seconds) == 1 ? std::to_string(seconds) : "invalid";
}

TEST(CAwhen, ValueMeansAnother)
{
    const struct {
        std::string (*read)(char *);
        std::string meaning;
        const char *texts;
    } rows[] = {
        {flag, "yes", "YES;O-n;ok;En_abled;pass;always so"},
        {flag, "no", "No;off;N_one;Dis-abled;failed;NEVER-ever"},
        {flag, "neither", "yess;okay;onn;noo;offf;nones;enabl"},
        {when, "ALWAYS", "Always;ON_;y-es"},
        {when, "ADMIN_ONLY", "Admin"},
        {when, "TOPN_ONLY", "Top-_N"},
        {when, "NEVER", "never;no;off;admin_only;ok;yess;1"},
        {duration, "900", "\t90 "},
        {duration, "5400", "1:30;1 hour 30 min;90Minutes;0:89:60"},
        {duration, "777600", "1 week, 2 days"},
        {duration, "354672000", "1 forever 3months,1year"},
        {duration, "111600", "hour 1 hour 30"},
        {duration, std::to_string(LONG_MAX), "99999999999999999999 years;9223372036854775807"},
        {duration, "invalid", "0:0:0:1;1 hour 10X;5 m; \n"},
    };
    for (const auto &row : rows) {
        std::istringstream in(row.texts);
        for (std::string text; std::getline(in, text, ';');) {
            EXPECT_EQ(row.read(GuardedText(text).data()), row.meaning) << text;
        }
    }
}

}  // namespace
