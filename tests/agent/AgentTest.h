// A fresh agent for one test: its configuration as the program starts with, an empty queue, and the
// trace captured.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "CAqueue.h"
#include "Row.h"
#include "TempDir.h"
#include "refetchd.h"

class AgentTest : public testing::Test {
protected:
    AgentTest()
    {
        freeWhatLivesUntilTheEnd();
        ac.~CAConfig();
        new (&ac) CAConfig;
        urlQueue = new CAQueue(1);
        processedUrls = HashCreate(1009, UrlComparator, UrlHasher, 1);
        ac.traceStream = open_memstream(&traceText_, &traceSize_);
    }
    ~AgentTest() override
    {
        drain();
        HashDrain(
            processedUrls, [](void *text, void * /*none*/) { std::free(text); }, nullptr);
        HashDestroy(processedUrls);
        delete urlQueue;
        std::fclose(ac.traceStream);
        ac.traceStream = nullptr;
        std::free(traceText_);
        std::free(g_ca_hits_filename);
        g_ca_hits_filename = nullptr;
    }

    // What was traced since the last call.
    std::string trace()
    {
        std::fflush(ac.traceStream);
        const std::string text(traceText_ + traceSeen_, traceSize_ - traceSeen_);
        traceSeen_ = traceSize_;
        return text;
    }

    // Reads a configuration file with these lines.
    void configure(const std::string &lines)
    {
        ASSERT_EQ(ac.loadAgentConfig(urlQueue, dir_.write("proxy.conf", lines).c_str()), 1);
    }

    // Empties the queue; the texts of what was in it.
    static std::vector<std::string> drain()
    {
        std::vector<std::string> texts;
        while (auto *const url = static_cast<CAURL *>(urlQueue->dequeue())) {
            texts.emplace_back(url->stringitize());
            delete url;
        }
        return texts;
    }

    TempDir dir_;

private:
    // The program leaves these to the end of the process, of which the leak checker sees many here.
    static void freeWhatLivesUntilTheEnd()
    {
        for (char *const text : {ac.httpVersion, ac.updateProxy, ac.hostname}) {
            std::free(text);
        }
        for (const HTList *e = ac.onlyPatterns->next; e != nullptr; e = e->next) {
            HTPattern_free(static_cast<HTPattern *>(e->object));
        }
        HTList_delete(ac.onlyPatterns, nullptr);
        if (ac.hostLimits != nullptr) {
            for (const HTList *e = ac.hostLimits->next; e != nullptr; e = e->next) {
                HTPattern_free(static_cast<HostLimit *>(e->object)->pattern);
            }
            HTList_deleteAndFreeContents(ac.hostLimits, nullptr);
        }
    }

    char *traceText_ = nullptr;
    std::size_t traceSize_ = 0;
    std::size_t traceSeen_ = 0;
};

template <typename Param>
class AgentTestWith : public AgentTest, public testing::WithParamInterface<Param> {
};
