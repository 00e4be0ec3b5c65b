#include "CArun.h"

#include <string_view>
#include <utility>

#include "AgentTest.h"

namespace {

// Does what a worker that is busy over the end of a run does between the two flushes.
ssize_t findLink(void * /*cookie*/, const char *text, std::size_t size)
{
    if (std::string_view(text, size).starts_with("Flushing.... remove all non-processed")) {
        FILE *const stream = std::exchange(ac.traceStream, nullptr);
        auto *const url = new CAURL("http://h/late");
        CARecordProcessed(url);
        urlQueue->enqueue(url);
        ac.traceStream = stream;
    }
    return static_cast<ssize_t>(size);
}

class CArunTest : public AgentTest {};

TEST_F(CArunTest, LinkFoundBetweenTheFlushesIsLostToTheNextRun)
{
    FILE *const trace = ac.traceStream;
    ac.traceStream = fopencookie(nullptr, "w", {nullptr, findLink, nullptr, nullptr});
    std::setvbuf(ac.traceStream, nullptr, _IOLBF, 0);
    ac.repeatCount = 2;
    CACleanup();
    std::fclose(ac.traceStream);
    ac.traceStream = trace;
    EXPECT_EQ(urlQueue->empty(), 1);
    EXPECT_EQ(HashLookup(processedUrls, "http://h/late"), nullptr);
}

}  // namespace
