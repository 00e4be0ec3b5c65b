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

TEST(HTResBundle, CatalogueGivesAnotherText)
{
    setenv("LC_ALL", "C", 1);  // the code page of a locale that has no row and no catalogue
    const struct {
        const char *locale;
        std::uint32_t key;
        std::uint32_t index;
        const char *text;
        const char *codePage = "ibm-850";
    } rows[] = {
        {"de_DE", 1, 951, "Treffer"},
        {"DE_de", 1, 955, "Keine Angaben verf\x81gbar..."},
        {"de_DE", 1, 958, "none"},
        {"de_DE", 1, 930, "none"},
        {"de_DE", 2, 951, "none"},
        {"ja_JP", 1, 951, "\x83\x71\x83\x62\x83\x67\x90\x94", "ibm-932"},
        {"es_ES", 1, 950, "URLs not processed:", "ANSI_X3.4-1968"},
    };
    for (const auto &row : rows) {
        const Bundle bundle = openIn(CATALOGUES, row.locale);
        ASSERT_NE(bundle, nullptr);
        EXPECT_STREQ(ResBundle_CodePage(bundle.get()), row.codePage);
        // First it comes from the bundle, then from the cache, at last from the primed cache.
        for (int round = 0; round < 3; ++round) {
            EXPECT_STREQ(ResBundle_ExtractWithDefault(bundle.get(), row.key, row.index, "none"),
                         row.text);
            if (round == 1) {
                ResBundle_Prime(bundle.get());
            }
        }
    }
}

// A bundle of the test's own: root with the given body.
Bundle openOwn(const TempDir &dir, const std::string &body)
{
    dir.write("tarnproxy/root.txt", "root { " + body + " }");
    const std::string make = "cd " + dir.path("tarnproxy") + " && genrb -q -e UTF-8 root.txt";
    EXPECT_EQ(std::system(make.c_str()), 0);
    return openIn(dir.path());
}

TEST(HTResBundle, SingleStringIsItsOwnFirstItemInTheForcedEncoding)
{
    const TempDir dir;
    const Bundle bundle = openOwn(dir, "force_encoding { \"UTF-8\" } \"7\" { \"\xc3\xa4\" }");
    ASSERT_NE(bundle, nullptr);
    EXPECT_STREQ(ResBundle_Extract(bundle.get(), 7, 1), "\xc3\xa4");
    EXPECT_EQ(ResBundle_Extract(bundle.get(), 7, 2), nullptr);
    EXPECT_EQ(*ResBundle_ExtractUnicode(bundle.get(), 7, 1), 0xe4);
    EXPECT_EQ(openOwn(TempDir(), "force_encoding { \"no-such-code\" }"), nullptr);
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
