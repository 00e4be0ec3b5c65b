// Shared by the micro-benchmarks: sets up the state of the agent's process, and cuts bytes into
// blocks as a connection does.
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

// Gives the calling thread a free list of its own, as ClientThread() does. It keeps it until it
// calls HTWorkThread_threadExit(1, context) with the result.
inline HTThreadContext *becomeWorker()
{
    [[maybe_unused]] static const int slot = HTList_register();
    return HTWorkThread_threadCreate(1);
}

// Resets the agent's state: the configuration to the defaults and the directives in `config`, the
// queue and the table of processed URLs to empty. The old state is not freed, because the process
// of a benchmark ends soon. Ends the process with status 1 if the configuration cannot be read.
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
        std::exit(1);  // the reason was reported
    }
    std::filesystem::remove(file);
}

// Calls take(block, length) with each block of `bytes`, in the same buffer, with a NUL after it.
// `take` may write into the block.
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
