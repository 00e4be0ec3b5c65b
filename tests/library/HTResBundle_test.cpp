#include "HTResBundle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "HTMessages.h"
#include "TempDir.h"

namespace {

struct Close {
    void operator()(ResBundle *bundle) const { ResBundle_Destroy(bundle); }
};
using Bundle = std::unique_ptr<ResBundle, Close>;

Bundle openIn(const std::string &directory, const char *locale)
{
    return Bundle(ResBundle_LoadSpecific(locale, directory.c_str(), "tarnproxy"));
}

struct TextCase {
    const char *locale;
    std::uint32_t key;
    std::uint32_t index;
    std::string text;
    const char *codePage;

    friend void PrintTo(const TextCase &row, std::ostream *os)
    {
        *os << row.locale << "_" << row.key << "_" << row.index;
    }
};

class Catalogue : public testing::TestWithParam<TextCase> {
protected:
    // The code page of a locale that has no row and no catalogue.
    static void SetUpTestSuite() { setenv("LC_ALL", "C", 1); }
};

TEST_P(Catalogue, GivesAnotherText)
{
    const TextCase &row = GetParam();
    const Bundle bundle = openIn(CATALOGUES, row.locale);
    ASSERT_NE(bundle, nullptr);
    EXPECT_STREQ(ResBundle_CodePage(bundle.get()), row.codePage);
    // The first time it comes from the bundle, then from the cache, at last from the primed cache.
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(ResBundle_ExtractWithDefault(bundle.get(), row.key, row.index, "none"), row.text);
        if (round == 1) {
            ResBundle_Prime(bundle.get());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    HTResBundle, Catalogue,
    testing::Values(TextCase{"de_DE", 1, 951, "Treffer", "ibm-850"},
                    TextCase{"de_DE", 1, 932,
                             "NumClients ist zu gro\xe1.  Die Zahl der Clients "
                             "wurde auf 100 herabgesetzt.\n",
                             "ibm-850"},
                    TextCase{"DE_de", 1, 955, "Keine Angaben verf\x81gbar...", "ibm-850"},
                    TextCase{"de_DE", 1, 956, "none", "ibm-850"},
                    TextCase{"de_DE", 1, 930, "none", "ibm-850"},
                    TextCase{"de_DE", 1, 0, "none", "ibm-850"},
                    TextCase{"de_DE", 1, UINT32_MAX, "none", "ibm-850"},
                    TextCase{"de_DE", 2, 951, "none", "ibm-850"},
                    TextCase{"ja_JP", 1, 951, "\x83\x71\x83\x62\x83\x67\x90\x94", "ibm-932"},
                    TextCase{"es_ES", 1, 950, "URLs not processed:", "ANSI_X3.4-1968"}),
    testing::PrintToStringParamName());

// A bundle of the test's own: root with the given body.
Bundle openOwn(const TempDir &dir, const std::string &body)
{
    dir.write("tarnproxy/root.txt", "root { " + body + " }");
    const std::string make = "cd " + dir.path("tarnproxy") + " && genrb -q -e UTF-8 root.txt";
    EXPECT_EQ(std::system(make.c_str()), 0);
    return openIn(dir.path(), "de_DE");
}

TEST(HTResBundle, SingleStringIsItsOwnFirstItemInTheForcedEncoding)
{
    const TempDir dir;
    const Bundle bundle = openOwn(dir, "force_encoding { \"UTF-8\" } \"7\" { \"\xc3\xa4\" }");
    ASSERT_NE(bundle, nullptr);
    EXPECT_STREQ(ResBundle_Extract(bundle.get(), 7, 1), "\xc3\xa4");
    EXPECT_EQ(ResBundle_Extract(bundle.get(), 7, 2), nullptr);
    EXPECT_EQ(*ResBundle_ExtractUnicode(bundle.get(), 7, 1), 0xe4);
}

TEST(HTResBundle, UnknownConverterOrNoCatalogueGivesNone)
{
    const TempDir dir;
    EXPECT_EQ(openOwn(dir, "force_encoding { \"no-such-code\" }"), nullptr);
    EXPECT_EQ(openIn(dir.path("nowhere"), "de_DE"), nullptr);
    EXPECT_EQ(openIn("", "de_DE"), nullptr);
}

TEST(HTResBundle, ThreadsGetTheSameText)
{
    const Bundle bundle = openIn(CATALOGUES, "de_DE");
    ASSERT_NE(bundle, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&bundle, t] {
            for (std::uint32_t index = 931; index <= 955; ++index) {
                EXPECT_EQ(ResBundle_Extract(bundle.get(), 1, index),
                          ResBundle_Extract(bundle.get(), 1, index));
                if (t == 0 && index == 940) {
                    ResBundle_Prime(bundle.get());
                }
                EXPECT_STREQ(nlsGetString(0, 1, 951, "fallback"), "fallback");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST(HTMessages, SetsThatCannotBeOpenedGiveTheFallback)
{
    EXPECT_STREQ(nlsGetString(7, 1, 1, "fallback"), "fallback");
    EXPECT_STREQ(nlsGetString(-1, 1, 1, "fallback"), "fallback");
    EXPECT_EQ(nlsLoadResources(3, "de_DE"), 0);
    nlsFreeResources(3);
    EXPECT_STREQ(nlsGetString(3, 1, 1, "fallback"), "fallback");
}

}  // namespace
