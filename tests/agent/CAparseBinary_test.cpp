#include "parse/CAparseBinary.h"

#include <gmock/gmock.h>

#include <filesystem>

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

}  // namespace
