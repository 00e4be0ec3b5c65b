#include "CAwhen.h"

#include "AgentTest.h"

namespace {

struct DurationRow : Row {
    const char *text;
    int result;
    long seconds;
    const char *message = "";
};

class Duration : public AgentTestWith<DurationRow> {};

TEST_P(Duration, IsMisread)
{
    std::string text(GetParam().text);
    long seconds = -1;
    EXPECT_EQ(parse_time(text.data(), 7, &seconds), GetParam().result);
    EXPECT_EQ(seconds, GetParam().seconds);
    EXPECT_EQ(trace(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    CAwhen, Duration,
    testing::Values(DurationRow{"Bare", " 90 \n", 1, 630},
                    DurationRow{"HoursMinutes", "1:30", 1, 5400},
                    DurationRow{"WithSeconds", "1:30:15", 1, 5415},
                    DurationRow{"Units", "2 Hours 30 min", 1, 9000},
                    DurationRow{"CommaBehindUnit", "1 week, 2 days", 1, 777600},
                    DurationRow{"LastNumberIsAField", "1 hour 30", 1, 111600},
                    DurationRow{"UnitAlone", "forever", 1, 0},
                    DurationRow{"LongestUnit", "1 forever", 1, 315360000},
                    DurationRow{"MonthIsNoMinute", "3 months", 1, 7776000},
                    DurationRow{"Blank", " \t", 0, 0},
                    DurationRow{"FourthField", "0:1:0:1", 0, 60,
                                "ERROR....... Too many colons in time specifier: 0:1:0:1\n"},
                    DurationRow{"UnknownUnit", "1 hour 10X", 0, 3600,
                                "ERROR....... Invalid time specifier: 1 hour 10x\n"},
                    DurationRow{"TooLarge", "99999999999999999999 years", 1, INT64_MAX}),
    rowName);

TEST(CAwhen, WordsAreStandardizedAndComparedWhole)
{
    const std::pair<const char *, _when> words[] = {
        {"On", ALWAYS},        {"YES", ALWAYS},       {"ON_", ALWAYS}, {"Top-N", TOPN_ONLY},
        {"admin", ADMIN_ONLY}, {"Admin_Only", NEVER}, {"off", NEVER},  {"alwayss", NEVER},
    };
    for (const auto &[word, when] : words) {
        std::string text(word);
        EXPECT_EQ(CAParseWhen(text.data()), when) << word;
    }
}

TEST(CAwhen, MatchesOnlyItsSource)
{
    const int expected[4][2] = {{0, 0}, {1, 1}, {1, 0}, {0, 1}};  // by when, by source
    for (const _when when : {NEVER, ALWAYS, ADMIN_ONLY, TOPN_ONLY}) {
        EXPECT_EQ(CAMatchWhen(when, SOURCE_CONFIG), expected[when][0]) << CAWhenString(when);
        EXPECT_EQ(CAMatchWhen(when, SOURCE_HITS), expected[when][1]) << CAWhenString(when);
    }
}

}  // namespace
