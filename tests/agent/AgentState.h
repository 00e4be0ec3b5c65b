// The agent's process-wide state as the program starts with it: the configuration's defaults and an
// empty queue; one at a time. Frees on destruction what the program leaves to the end of the
// process, of which a test process sees many.
#pragma once

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "config/CAcfg.h"
#include "url/CAURL.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

class AgentState {
public:
    AgentState()
    {
        freeWhatLivesUntilTheEnd();
        ac.~CAConfig();
        new (&ac) CAConfig;
        urlQueue = new CAQueue(1);
        processedUrls = CANewProcessedUrls();
    }
    ~AgentState()
    {
        drain();
        CAForgetAllProcessed();
        HashDestroy(processedUrls);
        delete urlQueue;
        std::free(g_ca_hits_filename);
        g_ca_hits_filename = nullptr;
    }

    // Empties the queue; the depth and the text of each URL, such as "0 http://h/p".
    static std::vector<std::string> drain()
    {
        std::vector<std::string> texts;
        while (auto *const url = static_cast<CAURL *>(urlQueue->dequeue())) {
            texts.push_back(std::to_string(url->depth()) + " " + url->stringitize());
            delete url;
        }
        return texts;
    }

private:
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
};
