#include "CAparseBinary.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "AgentTest.h"

namespace {

struct SaveRow : Row {
    const char *url;
    const char *file;  // below the save directory; empty: none, and nothing outside of it either
};

class Save : public AgentTestWith<SaveRow> {
protected:
    Save() { configure("slf on\nslr " + dir_.path("save/deep") + "\n"); }

    void save(const char *url, std::string body)
    {
        CAURL record(url);
        CAParseBinary parser(&record);
        parser.consume(body.data(), static_cast<std::int32_t>(body.size()), nullptr, nullptr);
    }
};

TEST_P(Save, GoesElsewhere)
{
    save(GetParam().url, "body");
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
        if (!entry.is_directory() && entry.path().filename() != "proxy.conf") {
            files.push_back(entry.path().lexically_relative(dir_.path("save/deep")).string());
        }
    }
    if (*GetParam().file == '\0') {
        EXPECT_THAT(files, testing::IsEmpty());
        EXPECT_THAT(trace(), testing::HasSubstr("\" FAILED.\n"));
    } else {
        EXPECT_THAT(files, testing::ElementsAre(GetParam().file));
        EXPECT_EQ(dir_.read(std::string("save/deep/") + GetParam().file), "body");
    }
}

INSTANTIATE_TEST_SUITE_P(
    CAParseBinary, Save,
    testing::Values(SaveRow{"Root", "http://h/", "h/index.html"},
                    SaveRow{"PortAndQuery", "http://h:8080/a/b.gif?x=1", "h:8080/a/b.gif?x=1"},
                    SaveRow{"DotsInside", "http://h/a/b..c/d", "h/a/b..c/d"},
                    SaveRow{"Climbing", "http://h/../x", ""},
                    SaveRow{"ClimbingFar", "http://h/../../../../x", ""},
                    SaveRow{"HostClimbs", "http://../x", ""}, SaveRow{"NoHost", "/x", "x"}),
    rowName);

using Saver = Save;

TEST_F(Saver, FileBecomesADirectoryWhenOneIsNeeded)
{
    save("http://h/a", "first");
    save("http://h/a/c.html", "second");
    EXPECT_EQ(dir_.read("save/deep/h/aindex.html"), "first");
    EXPECT_EQ(dir_.read("save/deep/h/a/c.html"), "second");
}

TEST_F(Saver, FileWhereTheSaveDirectoryShouldBeIsLeftAlone)
{
    configure("slr " + dir_.write("precious", "mine") + "\n");
    save("http://h/a", "body");
    EXPECT_EQ(dir_.read("precious"), "mine");
}

TEST_F(Saver, FileThatCannotBeWrittenIsRemoved)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {.rlim_cur = 6, .rlim_max = before.rlim_max};
    CAURL url("http://h/x");
    trace();
    {
        CAParseBinary parser(&url);
        char block[] = "1234";
        std::fflush(ac.traceStream);
        setrlimit(RLIMIT_FSIZE, &small);
        parser.consume(block, 4, nullptr, nullptr);
        EXPECT_EQ(parser.consume(block, 4, nullptr, nullptr), 4);
        EXPECT_EQ(parser.consume(block, 4, nullptr, nullptr), 4);
        setrlimit(RLIMIT_FSIZE, &before);
    }
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(dir_.read("save/deep/h/x"), "");
    EXPECT_FALSE(std::filesystem::exists(dir_.path("save/deep/h/x")));
    EXPECT_THAT(trace(), testing::EndsWith("failed.\nCAParseBin.. doing nothing.\n"
                                           "CAParseBin.. no file to close.\n"));
}

}  // namespace
