#include "parse/CAparseBinary.h"

#include <sys/resource.h>

#include <barrier>
#include <csignal>
#include <filesystem>
#include <thread>
#include <utility>

#include "AgentTest.h"

namespace {

class Save : public AgentTest {};

// Saves the URL's text as its body.
void save(const char *url)
{
    CAURL record(url);
    std::string body(url);
    CAParseBinary parser(&record);
    parser.consume(body.data(), static_cast<std::int32_t>(body.size()), nullptr, nullptr);
}

TEST_F(Save, GoesElsewhereOrOverwrites)
{
    const std::pair<const char *, const char *> rows[] = {
        {"http://h/", "h/index.html"},
        {"http://h:8080/a/b.gif?x=1", "h:8080/a/b.gif?x=1"},  // all that the URL says
        {"http://h/b..c/..d", "h/b..c/..d"},                  // no way up
        {"/x", "x"},                                          // no host
        {"http://h/a", "h/aindex.html"},                      // a directory is needed in its place
        {"http://h/a/c.html", "h/a/c.html"},
    };
    configure("slf on\nslr " + dir_.path("save/deep") + "\n");
    for (const auto &[url, file] : rows) {
        save(url);
    }
    for (const char *const url : {"http://h/../x", "http://h/../../../../x", "http://../x"}) {
        save(url);
        EXPECT_THAT(trace(), testing::HasSubstr("\" FAILED.\nCAParseBin.. doing nothing.\n"));
    }
    for (const auto &[url, file] : rows) {
        EXPECT_EQ(dir_.read(std::string("save/deep/") + file), url);
    }
    const std::filesystem::recursive_directory_iterator entries(dir_.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 14);  // half of them directories
    configure("slf on\nslr " + dir_.write("precious", "mine") + "\n");
    save("http://h/a");
    EXPECT_EQ(dir_.read("precious"), "mine");
}

// Many at once need a directory where a page was saved, or a name that the page has on its way.
TEST_F(Save, ThreadsMoveTheDirectoryOrWriteIntoThePageOnItsWay)
{
    constexpr int kRounds = 100;
    const char *const rows[] = {"ab/1", "ab/2", "ab/3", "ab/d/4", "ab/d/5", "a.tmp", "ab"};
    configure("slf on\nslr " + dir_.path("save") + "\n");
    const auto url = [](int round, const std::string &name) {
        return "http://h" + std::to_string(round) + "/" + name;
    };
    for (int round = 0; round < kRounds; ++round) {
        save(url(round, "ab").c_str());
    }
    FILE *const traceStream = std::exchange(ac.traceStream, nullptr);  // it would keep them in turn
    std::barrier barrier(std::ssize(rows));
    std::vector<std::jthread> threads;
    for (const char *const name : rows) {
        threads.emplace_back([&, name] {
            for (int round = 0; round < kRounds; ++round) {
                barrier.arrive_and_wait();
                save(url(round, name).c_str());
            }
        });
    }
    threads.clear();
    ac.traceStream = traceStream;
    for (int round = 0; round < kRounds; ++round) {
        const std::string host = "save/h" + std::to_string(round) + "/";
        for (const char *const name : {"ab/1", "ab/2", "ab/3", "ab/d/4", "ab/d/5"}) {
            ASSERT_EQ(dir_.read(host + name), url(round, name));
        }
        ASSERT_EQ(dir_.read(host + "abindex.html"), url(round, "ab"));
    }
}

TEST_F(Save, HalfAPageIsLeftWhereItWasMovedTo)
{
    configure("slf on\nslr " + dir_.path("save") + "\n");
    CAURL url("http://h/a");
    CAParseBinary parser(&url);
    std::string body = "0123456789";
    parser.consume(body.data(), 5, nullptr, nullptr);
    save("http://h/a/c");
    EXPECT_EQ(dir_.read("save/h/aindex.html"), "01234");
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t before = std::exchange(limit.rlim_cur, 6);
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    parser.consume(body.data(), 5, nullptr, nullptr);
    limit.rlim_cur = before;
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_FALSE(std::filesystem::exists(dir_.path("save/h/aindex.html")));
    EXPECT_EQ(dir_.read("save/h/a/c"), "http://h/a/c");
}

}  // namespace
