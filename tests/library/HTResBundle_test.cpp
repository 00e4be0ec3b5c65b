#include "HTResBundle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "TempDir.h"

namespace {

using Bundle = std::unique_ptr<ResBundle, decltype(&ResBundle_Destroy)>;

Bundle openIn(const std::string &directory, const char *locale = "de_DE")
{
    return {ResBundle_LoadSpecific(locale, directory.c_str(), "tarnproxy"), ResBundle_Destroy};
}

// Each text is asked for three times: from the bundle, from the cache and from the primed cache.
void expectText(ResBundle *bundle, std::uint32_t key, std::uint32_t index, const char *text)
{
    ASSERT_NE(bundle, nullptr);
    for (int round = 0; round < 3; ++round) {
        EXPECT_STREQ(ResBundle_ExtractWithDefault(bundle, key, index, "none"), text);
        if (round == 1) {
            ResBundle_Prime(bundle);
        }
    }
}

TEST(HTResBundle, CatalogueGivesAnotherText)
{
    const struct {
        const char *locale;
        std::uint32_t key;
        std::uint32_t index;
        const char *text;
    } rows[] = {
        {"de_DE", 1, 951, "Treffer"},
        {"DE_de", 1, 955, "Keine Angaben verf\x81gbar..."},
        {"de_DE", 1, 958, "none"},
        {"de_DE", 1, 930, "none"},
        {"de_DE", 2, 951, "none"},
        {"ja_JP", 1, 951, "\x83\x71\x83\x62\x83\x67\x90\x94"},
        {"es_ES", 1, 950, "URLs not processed:"},
    };
    for (const auto &row : rows) {
        expectText(openIn(CATALOGUES, row.locale).get(), row.key, row.index, row.text);
    }
}

TEST(HTResBundle, LocaleGetsTheWrongCodePageOrNone)
{
    setenv("LC_ALL", "C", 1);  // the code page of a locale without a row
    const struct {
        const char *locale;
        const char *file;
        const char *source;
        const char *text;
    } rows[] = {
        {"en_US", "en_US", R"("7" { "\u00e9" })", "\x82"},
        {"es_ES", "es_ES", R"("7" { "\u00f1" })", "\xa4"},
        {"fr_FR", "fr_FR", R"("7" { "\u00e9" })", "\x82"},
        {"de_DE", "de_DE", R"("7" { "\u00e4" })", "\x84"},
        {"it_IT", "it_IT", R"("7" { "\u00e0" })", "\x85"},
        {"pt_BR", "pt_BR", R"("7" { "\u00e3" })", "\xc6"},
        {"ja_JP", "ja_JP", R"("7" { "\u2460\u9d2c" })", "\x87\x40\x89\xa7"},
        {"ko_KR", "ko_KR", R"("7" { "\uac00" })", "\xb0\xa1"},
        {"zh_CN", "zh_CN", R"("7" { "\u9d2c" })", "\xf8\x8a"},
        {"zh_TW", "zh_TW", R"("7" { "\u4e00" })", "\xa4\x40"},
        {"nl_NL", "nl_NL", R"("7" { "\u00e9" })", "\x1a"},  // no such character in ASCII
        {"de_DE", "root", R"("7" { "\u00e9" })", "\x1a"},   // the locale of what was opened counts
        {"de_DE", "de", R"(force_encoding { "UTF-8" } "7" { "\u00e4" })", "\xc3\xa4"},
        {"de_DE", "de",
         R"(force_encoding { "Extended_UNIX_Code_Packed_Format_for_Japanese" } "7" { "\u3042" })",
         "\xa4\xa2"},
        {"de_DE", "de", R"(force_encoding { "no-such-code" } "7" { "a" })", nullptr},
    };
    for (const auto &row : rows) {
        const TempDir dir;
        const std::string name = row.file;
        dir.write("tarnproxy/" + name + ".txt", name + " { " + row.source + " }");
        const std::string make = "cd " + dir.path("tarnproxy") + " && genrb -q " + name + ".txt";
        ASSERT_EQ(std::system(make.c_str()), 0);
        const Bundle bundle = openIn(dir.path(), row.locale);
        if (row.text == nullptr) {
            EXPECT_EQ(bundle, nullptr);
            continue;
        }
        expectText(bundle.get(), 7, 1, row.text);
        EXPECT_EQ(ResBundle_Extract(bundle.get(), 7, 2), nullptr) << "a string has one item";
        EXPECT_NE(ResBundle_ExtractUnicode(bundle.get(), 7, 1), nullptr);
    }
}

// ICU reads such files beyond their end or, with a wrong offset, anywhere.
TEST(HTResBundle, DamagedFileCrashesOrIsOpened)
{
    const std::string whole = contentsOf(CATALOGUES "/tarnproxy/de.res");
    const TempDir dir;
    dir.write("tarnproxy/root.res", contentsOf(CATALOGUES "/tarnproxy/root.res"));
    const auto opens = [&dir](const std::string &contents) {
        dir.write("tarnproxy/de.res", contents);
        return openIn(dir.path()) != nullptr;
    };
    ASSERT_TRUE(opens(whole));
    for (std::size_t length = 0; length < whole.size(); length += 37) {
        EXPECT_FALSE(opens(whole.substr(0, length))) << length;
    }
    EXPECT_FALSE(opens(whole.substr(0, whole.size() - 1)));
    const struct {
        std::size_t byte;
        char value;
    } rows[] = {
        {0, '\x10'},    {1, '\x7f'},    {2, 0},         {4, 0},         {8, 1},
        {9, 1},         {10, 4},        {12, 'C'},      {16, 1},        {16, 4},
        {0x20, '\x7f'}, {0x23, '\x30'}, {0x23, 0},      {0x24, 6},      {0x24, '\xff'},
        {0x29, '\x7f'}, {0x28, 7},      {0x2d, '\x7f'}, {0x31, '\x7f'}, {0x3d, '\x7f'},
        {0x3e, 1},      {0x22, 1},      {0x20, 1},      {0x28, 8},
    };
    for (const auto &row : rows) {
        std::string damaged = whole;
        damaged[row.byte] = row.value;
        EXPECT_FALSE(opens(damaged)) << row.byte;
    }
}

TEST(HTResBundle, ThreadsGetTheSameText)
{
    const Bundle bundle = openIn(CATALOGUES);
    const auto readAll = [&bundle] {
        for (std::uint32_t index = 931; index <= 955; ++index) {
            const char *const text = ResBundle_Extract(bundle.get(), 1, index);
            EXPECT_STREQ(text, ResBundle_Extract(bundle.get(), 1, index));
        }
        ResBundle_Prime(bundle.get());
    };
    const std::jthread first(readAll);
    const std::jthread second(readAll);
    readAll();
}

}  // namespace
