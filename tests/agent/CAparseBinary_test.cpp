#include "parse/CAparseBinary.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <barrier>
#include <csignal>
#include <filesystem>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "AgentTest.h"

namespace {

using Words = std::vector<std::string>;

class Save : public AgentTest {
protected:
    // The names in a directory.
    Words names(const std::string &directory) const
    {
        Words result;
        for (const auto &entry : std::filesystem::directory_iterator(dir_.path(directory))) {
            result.push_back(entry.path().filename());
        }
        return result;
    }
};

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

// 20 at once save 1000 pages each, below pages that were saved before.
TEST_F(Save, OneOf20000CopiesIsLost)
{
    constexpr int kClients = 20;
    constexpr int kPages = 1000;
    configure("slf on\nslr " + dir_.path("save") + "\n");
    const auto url = [](int page) { return "http://h/" + std::to_string(page); };
    for (int page = 0; page < kPages; ++page) {
        save(url(page).c_str());
    }
    FILE *const traceStream = std::exchange(ac.traceStream, nullptr);
    std::vector<std::jthread> threads;
    for (int client = 0; client < kClients; ++client) {
        threads.emplace_back([&url, client] {
            for (int page = 0; page < kPages; ++page) {
                save((url(page) + "/" + std::to_string(client)).c_str());
            }
        });
    }
    threads.clear();
    ac.traceStream = traceStream;
    for (int page = 0; page < kPages; ++page) {
        const std::string file = "save/h/" + std::to_string(page);
        ASSERT_EQ(dir_.read(file + "index.html"), url(page));
        for (const std::string &name : names(file)) {
            ASSERT_EQ(dir_.read(file + "/" + name), url(page) + "/" + name);
        }
    }
    const std::filesystem::recursive_directory_iterator entries(dir_.path("save"));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1 + kPages * (2 + kClients));
}

// A body in two halves, between which the test does something else.
class Halves {
public:
    Halves(const char *url, char letter)
        : url_(url), parser_(new CAParseBinary(&url_)), half_(9, letter)
    {
        write();
    }
    void write() { parser_->consume(half_.data(), 9, nullptr, nullptr); }
    void end(bool isWhole = true)
    {
        write();
        if (!isWhole) {
            parser_->breakOff();
        }
        parser_.reset();
    }

private:
    CAURL url_;
    std::unique_ptr<CAParseBinary> parser_;
    std::string half_;
};

TEST_F(Save, BodiesForOneNameMix)
{
    configure("slf on\nslr " + dir_.path("save") + "\n");
    const auto text = [](char letter) { return std::string(18, letter); };
    for (const bool isWhole : {true, false}) {
        Halves a("http://h/x", 'a');
        Halves b("http://h/x", 'b');
        a.end();
        EXPECT_EQ(dir_.read("save/h/x"), text('a'));
        b.end(isWhole);
        EXPECT_EQ(dir_.read("save/h/x"), text(isWhole ? 'b' : 'a'));
    }
    EXPECT_EQ(names("save/h"), Words{"x"});
}

TEST_F(Save, FileOfAKilledAgentStaysOrOneInUseIsTaken)
{
    configure("slf on\nslr " + dir_.path("save") + "\n");
    Halves a("http://h/x", 'a');
    const Words aside = names("save/h");
    ASSERT_EQ(aside.size(), 1);
    const std::string name = "save/h/" + aside[0];
    save("http://h/y");
    EXPECT_EQ(dir_.read(name).size(), 9) << "in use";
    a.end();
    dir_.write(name, "left behind");
    std::filesystem::create_symlink(dir_.path("proxy.conf"), dir_.path(name + "0"));
    std::jthread([] { save("http://h/y"); }).join();  // any thread
    EXPECT_THAT(names("save/h"), testing::UnorderedElementsAre("x", "y", aside[0] + "0"));
}

TEST_F(Save, EarlierFileLosesItsModeOrItsLink)
{
    using std::filesystem::perms;
    configure("slf on\nslr " + dir_.path("save") + "\n");
    const std::string real = dir_.write("real/file", "earlier");
    std::filesystem::permissions(real, perms::owner_all | perms::others_read);
    dir_.write("save/h/keep", "");
    std::filesystem::create_symlink("../../real/file", dir_.path("save/h/x"));
    std::filesystem::create_symlink("none", dir_.path("save/h/y"));
    mkfifo(dir_.path("save/h/pipe").c_str(), 0600);
    for (const char *const url : {"http://h/x", "http://h/y", "http://h/pipe"}) {
        save(url);
    }
    EXPECT_THAT(trace(), testing::HasSubstr("/save/h//pipe\" FAILED.\n"));
    EXPECT_EQ(dir_.read("real/file"), "http://h/x");
    EXPECT_EQ(std::filesystem::status(real).permissions(), perms::owner_all | perms::others_read);
    EXPECT_EQ(dir_.read("save/h/none"), "http://h/y");
    EXPECT_TRUE(std::filesystem::is_symlink(dir_.path("save/h/x")));
    const std::string longest = "http://h/" + std::string(255, 'n');
    save(longest.c_str());
    EXPECT_EQ(dir_.read("save/" + longest.substr(7)), longest);
    save((longest + "n").c_str());
    EXPECT_THAT(trace(), testing::HasSubstr("nn\" FAILED.\n"));
}

TEST_F(Save, CopyInAClosedDirectoryIsNotWritten)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "root may write everywhere";
    }
    using std::filesystem::perms;
    configure("slf on\nslr " + dir_.path("save") + "\n");
    dir_.write("save/h/x", std::string(100, 'e'));
    std::filesystem::permissions(dir_.path("save/h"), perms::owner_read | perms::owner_exec);
    save("http://h/x");
    save("http://h/new");
    std::filesystem::permissions(dir_.path("save/h"), perms::owner_all);
    EXPECT_EQ(dir_.read("save/h/x"), "http://h/x");
    EXPECT_EQ(names("save/h"), Words{"x"});
}

TEST_F(Save, HalfAPageIsLeftOrAnEarlierOneIsLost)
{
    configure("slf on\nslr " + dir_.path("save") + "\n");
    save("http://h/b");
    Halves moved("http://h/a", 'a');
    Halves failed("http://h/b", 'b');
    save("http://h/a/c");  // a directory is needed in the place of the first
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlim_t before = std::exchange(limit.rlim_cur, 10);
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
    failed.end();
    limit.rlim_cur = before;
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(dir_.read("save/h/b"), "http://h/b");
    EXPECT_THAT(trace(), testing::HasSubstr("failed.\nCAParseBin.. no file to close.\n"));
    moved.end();
    EXPECT_EQ(dir_.read("save/h/aindex.html"), std::string(18, 'a'));
    EXPECT_EQ(dir_.read("save/h/a/c"), "http://h/a/c");
    EXPECT_EQ(names("save/h").size(), 3);
}

}  // namespace
