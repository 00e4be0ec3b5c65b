#include "CArun.h"

#include <string_view>

#include "AgentTest.h"

namespace {

// Does what a worker that is busy over the end of a run does between the two flushes.
ssize_t findLink(void *cookie, const char *text, std::size_t size)
{
    if (std::string_view(text, size).starts_with("Flushing.... remove all non-processed")) {
        auto *const url = static_cast<CAURL *>(cookie);
        CARecordProcessed(url);
        urlQueue->enqueue(url);
    }
    return static_cast<ssize_t>(size);
}

class CArunTest : public AgentTest {};

TEST_F(CArunTest, LinkFoundBetweenTheFlushesIsLostToTheNextRun)
{
    auto *const url = new CAURL("http://h/late");
    std::fclose(ac.traceStream);
    ac.traceStream = fopencookie(url, "w", {nullptr, findLink, nullptr, nullptr});
    std::setvbuf(ac.traceStream, nullptr, _IOLBF, 0);
    ac.repeatCount = 2;
    CACleanup();
    EXPECT_EQ(urlQueue->empty(), 1);
    EXPECT_EQ(HashLookup(processedUrls, "http://h/late"), nullptr);
}

}  // namespace
