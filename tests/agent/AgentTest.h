// A fresh agent for one test: its state as the program starts with it, and the trace captured.
#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "AgentState.h"
#include "Row.h"
#include "TempDir.h"

class AgentTest : public testing::Test {
protected:
    AgentTest() { ac.traceStream = open_memstream(&traceText_, &traceSize_); }
    ~AgentTest() override
    {
        std::fclose(ac.traceStream);
        ac.traceStream = nullptr;
        std::free(traceText_);
    }

    // What was traced since the last call.
    std::string trace()
    {
        std::fflush(ac.traceStream);
        std::rewind(ac.traceStream);
        return {traceText_, traceSize_};
    }

    // Reads a configuration file with these lines.
    void configure(const std::string &lines)
    {
        ASSERT_EQ(ac.loadAgentConfig(urlQueue, dir_.write("proxy.conf", lines).c_str()), 1);
    }

    const AgentState state_;
    const TempDir dir_;

private:
    char *traceText_ = nullptr;
    std::size_t traceSize_ = 0;
};

template <typename Param>
class AgentTestWith : public AgentTest, public testing::WithParamInterface<Param> {
};
