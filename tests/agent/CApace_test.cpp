// When a client may send its next request, in a time of the test's own.
#include "fetch/CApace.h"

#include "AgentTest.h"
#include "fetch/CArunNumber.h"

namespace {

struct PaceRow : Row {
    std::int32_t clients;
    std::int32_t slowStart;    // seconds
    std::int32_t delayFactor;  // thousandths
    std::int32_t index;
    std::int64_t answer;  // milliseconds; below 0: there was none
    std::int64_t now;     // milliseconds after the start of the run, and after the answer
    std::int64_t wait;
    std::uint32_t runsAgo = 0;  // the answer's run
};

class ClientPace : public AgentTestWith<PaceRow> {};

TEST_P(ClientPace, WaitIsTooShortOrTooLong)
{
    const PaceRow &row = GetParam();
    constexpr std::int64_t kBegin = 5'000'000'000;
    ac.numClients = row.clients;
    ac.slowStart = row.slowStart;
    ac.delayFactor = row.delayFactor;
    CABeginPace(kBegin);
    CAClientPace pace(row.index);
    if (row.answer >= 0) {
        pace.noteAnswer(row.answer, currentRun - row.runsAgo, kBegin);
    }
    EXPECT_EQ(pace.millisToWait(kBegin + row.now), row.wait);
}

const PaceRow kPaceRows[] = {
    {"FirstClient", 4, 60, 0, 0, -1, 0, 0},
    {"SecondOfFour", 4, 60, 0, 1, -1, 100, 19900},
    {"LastAtItsTime", 4, 60, 0, 3, -1, 60000, 0},
    {"OnlyClient", 1, 60, 0, 0, -1, 0, 0},
    {"LongestStart", 100, INT32_MAX, 0, 99, -1, 0, 2147483647000},
    {"Negative", 4, -60, -1000, 3, 500, 0, 0},
    {"AfterAnAnswer", 1, 0, 1500, 0, 500, 50, 700},
    {"AtMostTenSeconds", 1, 0, INT32_MAX, 0, INT32_MAX, 0, 10000},
    {"AnswerOfTheRunBefore", 1, 0, 1500, 0, 500, 0, 0, 1},
    {"TheLaterOfBoth", 2, 2, 1000, 1, 3000, 500, 2500},
};
INSTANTIATE_TEST_SUITE_P(CApace, ClientPace, testing::ValuesIn(kPaceRows), rowName);

}  // namespace
