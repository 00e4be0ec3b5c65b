// The agent's process-wide state as at the start of the program: the default configuration and an
// empty queue; one at a time. Frees what the program itself would keep until it ends.
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
        for (char *const text : {ac.httpVersion, ac.updateProxy, ac.hostname}) {
            std::free(text);
        }
        for (const HTList *e = ac.onlyPatterns; (e = e->next) != nullptr;) {
            HTPattern_free(static_cast<HTPattern *>(e->object));
        }
        HTList_delete(ac.onlyPatterns, nullptr);
        for (const HTList *e = ac.hostLimits; e != nullptr && (e = e->next) != nullptr;) {
            HTPattern_free(static_cast<HostLimit *>(e->object)->pattern);
        }
        HTList_deleteAndFreeContents(ac.hostLimits, nullptr);  // or null
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
};
