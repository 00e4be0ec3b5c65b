// What the micro-benchmarks share: the state of the agent's process, and blocks as a connection
// reads them.
#pragma once

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include "HTList.h"
#include "config/CAcfg.h"
#include "url/CAURL.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

// Gives the thread a free list of its own, as ClientThread does; HTWorkThread_threadExit(1, ...)
// takes it back.
inline HTThreadContext *becomeWorker()
{
    [[maybe_unused]] static const int slot = HTList_register();
    return HTWorkThread_threadCreate(1);
}

// Gives the process the agent's state anew: the defaults or what `config` says, and nothing queued
// or processed. The state before is not freed: a benchmark's process ends soon.
inline void startAgent(const std::string &config = "")
{
    becomeWorker();
    new (&ac) CAConfig;
    urlQueue = new CAQueue(1);
    processedUrls = CANewProcessedUrls();
    const std::filesystem::path file = std::filesystem::temp_directory_path() /
                                       ("refetchd-bench-" + std::to_string(getpid()) + ".conf");
    std::ofstream(file) << config;
    if (ac.loadAgentConfig(urlQueue, file.c_str()) == 0) {
        std::exit(1);  // it has said why
    }
    std::filesystem::remove(file);
}

// Hands `bytes` over block by block in one buffer, with a NUL behind each. The taker may write into
// the block.
template <typename Take>
void inBlocks(const std::string &bytes, Take take)
{
    constexpr std::size_t kBlock = 4096;
    std::array<char, kBlock + 1> block;
    for (std::size_t at = 0; at < bytes.size(); at += kBlock) {
        const std::size_t length = bytes.copy(block.data(), kBlock, at);
        block[length] = '\0';
        take(block.data(), length);
    }
}
