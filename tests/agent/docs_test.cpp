// What the documents say of the directives: docs/directives.txt, of which they are made.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "AgentTest.h"
#include "config/CAdirectives.h"

namespace {

struct Documented {
    std::string name;
    std::string lines = "";     // its examples
    std::string messages = "";  // what each of them traces
    std::string byDefault = "none";
};

std::vector<Documented> documentedDirectives()
{
    std::vector<Documented> directives;
    std::ifstream file(SOURCE_DIRECTORY "/docs/directives.txt");
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && std::islower(line[0]) != 0) {
            directives.push_back({.name = line});
        } else if (line.starts_with("    example  ")) {
            directives.back().lines += line.substr(13) + "\n";
        } else if (line.starts_with("    default  ")) {
            directives.back().byDefault = std::regex_replace(line.substr(13), std::regex("`"), "");
        } else if (line.starts_with("    message  ")) {
            directives.back().messages += line.substr(13) + "\n";
        }
    }
    return directives;
}

// The text with the directories of an installed agent below `root`.
std::string below(const std::string &root, const std::string &text)
{
    return std::regex_replace(text, std::regex("/var/"), root + "/var/");
}

class Document : public AgentTestWith<Documented> {};

TEST_P(Document, ExampleIsRefusedOrTracesAnotherMessage)
{
    std::snprintf(refetchd_LocaleString, sizeof(refetchd_LocaleString), "LOCALE");
    std::filesystem::create_directories(dir_.path("var/lib/refetchd/pub/LOCALE/reports"));
    std::filesystem::create_directories(dir_.path("var/log/refetchd"));
    configure(below(dir_.path(), GetParam().lines));
    std::string text = trace() + dir_.read("var/log/refetchd/trace.log");
    text.erase(0, text.find('\n') + 1);  // which file is read
    const std::string messages = below(dir_.path(), GetParam().messages);
    EXPECT_THAT(text, testing::HasSubstr(messages));
    EXPECT_EQ(text.empty(), messages.empty()) << text;
    EXPECT_TRUE(GetParam().lines.starts_with(GetParam().name + " "));
}

INSTANTIATE_TEST_SUITE_P(Docs, Document, testing::ValuesIn(documentedDirectives()), rowName);

TEST(Docs, DirectiveIsMissingOrUnknown)
{
    std::vector<std::string> names;
    for (const Documented &directive : documentedDirectives()) {
        names.push_back(directive.name);
    }
    std::vector<std::string_view> known;
    for (const CADirective &row : CADirectives()) {
        known.push_back(row.name);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(known));
}

TEST(Docs, DefaultIsNotTheAgents)
{
    const AgentState state;
    for (const Documented &directive : documentedDirectives()) {
        const CADirective &row = *CAFindDirective(directive.name);
        const bool dependsOnTheMachine = row.name == "hostname" || row.name == "updateproxy";
        if (!dependsOnTheMachine && !CAAddsUp(row.takes) && row.meaning.empty()) {
            EXPECT_EQ(row.shown != nullptr ? row.shown(ac) : row.unset, directive.byDefault)
                << row.name;
        }
    }
}

}  // namespace
