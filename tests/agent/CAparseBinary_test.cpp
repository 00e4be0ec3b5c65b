#include "CAparseBinary.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "AgentTest.h"

namespace {

class Save : public AgentTest {
protected:
    // Saves the URL's text as its body.
    static void save(const char *url)
    {
        CAURL record(url);
        std::string body(url);
        CAParseBinary parser(&record);
        parser.consume(body.data(), static_cast<std::int32_t>(body.size()), nullptr, nullptr);
    }
};

TEST_F(Save, GoesElsewhereOrOverwrites)
{
    configure("slf on\nslr " + dir_.path("save/deep") + "\n");
    for (const char *const url :
         {"http://h/", "http://h:8080/a/b.gif?x=1", "http://h/b..c/..d", "/x", "http://h/a",
          "http://h/a/c.html", "http://h/../x", "http://h/../../../../x", "http://../x"}) {
        save(url);
    }
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
        const std::string name = entry.path().lexically_relative(dir_.path("save/deep")).string();
        if (!entry.is_directory()) {
            files.push_back(name + " " + dir_.read("save/deep/" + name));
        }
    }
    const std::string configuration = dir_.read("proxy.conf");
    EXPECT_THAT(files, testing::UnorderedElementsAre(
                           "../../proxy.conf " + configuration, "h/index.html http://h/",
                           "h:8080/a/b.gif?x=1 http://h:8080/a/b.gif?x=1",
                           "h/b..c/..d http://h/b..c/..d", "x /x",
                           "h/aindex.html http://h/a",  // a directory was needed in its place
                           "h/a/c.html http://h/a/c.html"));
    EXPECT_THAT(trace(), testing::HasSubstr("\" FAILED.\nCAParseBin.. doing nothing.\nClosing"));
}

TEST_F(Save, FileWhereTheSaveDirectoryShouldBeIsLeftAlone)
{
    configure("slf on\nslr " + dir_.write("precious", "mine") + "\n");
    save("http://h/a");
    EXPECT_EQ(dir_.read("precious"), "mine");
}

}  // namespace
