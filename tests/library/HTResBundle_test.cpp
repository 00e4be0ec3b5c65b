#include "HTResBundle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "TempDir.h"

namespace {

using Bundle = std::unique_ptr<ResBundle, decltype(&ResBundle_Destroy)>;

Bundle openIn(const std::string &directory, const char *locale = "de_DE")
{
    return {ResBundle_LoadSpecific(locale, directory.c_str(), "tarnproxy"), ResBundle_Destroy};
}

// The text as it comes from the bundle, from the cache and from the primed cache.
std::string textOf(ResBundle *bundle, std::uint32_t key, std::uint32_t index)
{
    if (bundle == nullptr) {
        return "closed";
    }
    const std::string text = ResBundle_ExtractWithDefault(bundle, key, index, "none");
    EXPECT_EQ(ResBundle_ExtractWithDefault(bundle, key, index, "none"), text);
    ResBundle_Prime(bundle);
    EXPECT_EQ(ResBundle_ExtractWithDefault(bundle, key, index, "none"), text);
    return text;
}

TEST(HTResBundle, CatalogueGivesAnotherText)
{
    std::istringstream rows(R"(
        de_DE 1 951 Treffer    de_DE 1 957 "%s"    de_DE 1 999 none    de_DE 1 930 none
        de_DE 2 951 none       de_DE 1 0   none    es_ES 1 951 Hits)");
    std::uint32_t key = 0;
    std::uint32_t index = 0;
    for (std::string locale, text; rows >> locale >> key >> index >> text;) {
        const std::string found = textOf(openIn(CATALOGUES, locale.c_str()).get(), key, index);
        EXPECT_EQ(found.substr(0, found.find(' ')), text) << index;
    }
}

TEST(HTResBundle, LocaleGetsTheWrongCodePageOrNone)
{
    setenv("LC_ALL", "C", 1);  // the code page of a locale without a row
    // Locale, file, forced encoding, text, and the bytes that it becomes.
    std::istringstream rows(R"(
        en_US en_US - \u00e9 82    es_ES es_ES - \u00f1 a4        fr_FR fr_FR - \u00e9 82
        DE_de de_DE - \u00e4 84    it_IT it_IT - \u00e0 85        pt_BR pt_BR - \u00e3 c6
        ko_KR ko_KR - \uac00 b0a1  ja_JP ja_JP - \u2460\u9d2c 874089a7
        zh_CN zh_CN - \u9d2c f88a  zh_TW zh_TW - \u4e00 a440      nl_NL nl_NL - \u00e9 1a
        de_DE root - \u00e9 1a     de_DE de UTF-8 \u00e4 c3a4     de_DE de no-such-code a closed
        de_DE de Extended_UNIX_Code_Packed_Format_for_Japanese \u3042 a4a2)");
    for (std::string locale, file, encoding, source, bytes;
         rows >> locale >> file >> encoding >> source >> bytes;) {
        const TempDir dir;
        const std::string forced = encoding == "-" ? "" : "force_encoding {" + encoding + "}";
        dir.write("tarnproxy/x", file + "{" + forced + "7{\"" + source + "\"}}");
        const std::string make = "cd " + dir.path("tarnproxy") + " && genrb -q x";
        ASSERT_EQ(std::system(make.c_str()), 0);
        const Bundle bundle = openIn(dir.path(), locale.c_str());
        std::string found;
        for (const char c : textOf(bundle.get(), 7, 1)) {
            constexpr const char *kDigits = "0123456789abcdef";
            found += {kDigits[c >> 4 & 15], kDigits[c & 15]};
        }
        EXPECT_EQ(bundle == nullptr ? "closed" : found, bytes) << locale;
        EXPECT_TRUE(bundle == nullptr || ResBundle_Extract(bundle.get(), 7, 2) == nullptr);
        EXPECT_TRUE(bundle == nullptr || *ResBundle_ExtractUnicode(bundle.get(), 7, 1) > 127);
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
    std::stringstream rows;  // a byte and the wrong value that it gets, in hexadecimal
    rows << "0 10 1 7f 2 0 4 0 8 1 9 1 a 4 c 43 10 1 10 4 20 1 20 7f 22 1 23 0 23 30 24 6 24 ff 28 "
            "7 "
            "28 8 29 7f 2d 7f 31 7f 3d 7f 3e 1 "
         << std::hex << whole.size() - 8 << " ff";  // the root table ends the file
    for (std::size_t byte = 0, value = 0; rows >> byte >> value;) {
        std::string damaged = whole;
        damaged[byte] = static_cast<char>(value);
        EXPECT_FALSE(opens(damaged)) << byte;
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
