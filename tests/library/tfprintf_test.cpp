#include "tfprintf.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <sstream>
#include <string>

#include "HTArgs.h"
#include "HTSimplify.h"
#include "htthread.h"

namespace {

// The trace log as a file of its own.
class TraceLog : public testing::Test {
protected:
    TraceLog() : log_(std::tmpfile())
    {
        trace_log = log_;
        trace_log_limit = 1;
    }
    ~TraceLog() override
    {
        trace_log = nullptr;
        trace_log_limit = 0;
        std::fclose(log_);
    }
    std::string text()
    {
        std::fflush(log_);
        std::string text(2 << 20, '\0');
        const ssize_t length = pread(fileno(log_), text.data(), text.size(), 0);
        return text.substr(0, static_cast<std::size_t>(length));
    }

    FILE *const log_;
};

TEST_F(TraceLog, LineHasAnotherPrefix)
{
    const std::time_t before = HTtime();
    const int written = tfprintf(stderr, "a%d%%\n", 7);
    const std::string line = text();
    EXPECT_EQ(static_cast<std::size_t>(written), line.size());
    unsigned seconds = 0;
    std::uintptr_t thread = 0;
    EXPECT_EQ(std::sscanf(line.c_str(), "[0x%" SCNxPTR "/%10u]: ", &thread, &seconds), 2);
    EXPECT_EQ(thread, OsThreadMyself());
    EXPECT_GE(seconds, before);
    EXPECT_EQ(line.substr(line.find(']')), "]: a7%\n");
}

TEST_F(TraceLog, LogGrowsBeyondItsLimit)
{
    std::fseek(log_, 1 << 20, SEEK_SET);
    tfprintf(stderr, "first\n");  // at the limit, not beyond it
    tfprintf(stderr, "second\n");
    EXPECT_GT(text().find("first\n"), 1U << 20);
    EXPECT_LT(text().find("second\n"), 100U);
}

TEST_F(TraceLog, ModulesWriteOtherLines)
{
    HTPool pool;
    std::string line = "loadurl a b\"c d";
    std::array<char *, kMaxArgs> words{};
    for (const int level : {0, 1, 0}) {
        HTTrace_setLevel(level);
        HTTrace_setModule(kTraceArguments, true);
        HTTrace_setModule(kTraceUri, level == 1);
        std::string path = "http://a:80/http://b:80/..";
        HTSimplify(path.data(), &pool);
    }
    HTTrace_setLevel(1);
    EXPECT_EQ(parse_args(line.data(), words.data()), 4);
    HTTrace_setLevel(0);
    std::istringstream lines(text());
    std::string messages;
    while (std::getline(lines.ignore(100, ']'), line)) {
        messages += line + "\n";
    }
    EXPECT_EQ(messages,
              ": HTSimplify.. simplifying `http://a:80/http://b:80/..' \n"
              ": Removing.... redundant port 80 from \"http://a:80/http://b:80/..\".\n"
              ": Removed..... redundant port from \"http://a/http://b:80/..\".\n"
              ": Removing.... redundant port 80 from \"http://a/http://b:80/..\".\n"
              ": Removed..... redundant port from \"http://a/http://b/..\".\n"
              ": HTSimplify.. into `http://a/http://b/..'\n"
              ": Config...... closing quote missing in argument 2: \"c d. Ignoring quote...\n");
}

HT_PRINTF(1, 2) std::size_t lengthOf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const std::size_t length = va_list_length(format, args);
    va_end(args);
    return length;
}

TEST(VaListLength, ArgumentIsCountedOrTakenWrongly)
{
    const char *volatile none = nullptr;  // what it is the compiler need not know
    EXPECT_EQ(lengthOf("100%% sure%d%5ld%s", 1, 2L, "abc"), 18U + 20 + 20 + 3);
    EXPECT_EQ(lengthOf("%c%p%.2f%Lg%s", 'x', "", 1.0, 2.0L, none), 13U + 5 + 10 + 20 + 20 + 6);
    EXPECT_EQ(lengthOf("%-*.*s%.*s", 9, 2, "abc", -1, "abc"), 10U + 2 + 3);
}

}  // namespace
