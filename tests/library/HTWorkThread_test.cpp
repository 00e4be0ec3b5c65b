#include "HTWorkThread.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

std::string hookLog;  // of the child process below

template <char letter>
void note(HTThreadContext *context, int slot)
{
    hookLog += letter;
    hookLog += context == HTThread_context() ? std::to_string(slot) : "?";
}

// Registrations last as long as the process, so a child of its own makes them.
[[noreturn]] void registerTillFull()
{
    const int first = HTWorkThread_register("first", note<'b'>, note<'e'>);
    HTWorkThread_register("silent", nullptr, nullptr);
    const int last = HTWorkThread_register("last", note<'B'>, note<'E'>);
    HTWorkThread_threadExit(0, HTWorkThread_threadCreate(0));
    const std::string f = std::to_string(first);
    const std::string l = std::to_string(last);
    const bool inOrder = last == first + 2 && hookLog == "b" + f + "B" + l + "E" + l + "e" + f;
    int slot = last;
    while (slot >= 0 && slot < kThreadSlots) {
        slot = HTWorkThread_register("more", nullptr, nullptr);
    }
    std::_Exit(inOrder && slot == -1 ? 0 : 1);
}

TEST(HTWorkThread, HooksRunOutOfOrderOrSlotsOverflow)
{
    EXPECT_EXIT(registerTillFull(), testing::ExitedWithCode(0), "");
}

}  // namespace
