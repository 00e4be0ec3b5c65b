#include "url/CAcharset.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "HTString.h"

namespace {

struct Charset {
    const char *converter;    // ICU's name of it
    std::string_view labels;  // in lower case, with a blank between them
};

constexpr Charset kCharsets[] = {
    // A page in UTF-16 cannot declare that in text that is read byte by byte.
    {"UTF-8",
     "utf-8 utf8 unicode-1-1-utf-8 unicode11utf8 unicode20utf8 x-unicode20utf8 utf-16 utf-16le "
     "utf-16be csunicode iso-10646-ucs-2 ucs-2 unicode unicodefeff unicodefffe"},
    {"windows-1252",
     "iso-8859-1 windows-1252 ansi_x3.4-1968 ascii cp1252 cp819 csisolatin1 ibm819 iso-ir-100 "
     "iso8859-1 iso88591 iso_8859-1 iso_8859-1:1987 l1 latin1 us-ascii x-cp1252 x-user-defined"},
    {"windows-1250", "windows-1250 cp1250 x-cp1250"},
    {"windows-1251", "windows-1251 cp1251 x-cp1251"},
    {"windows-1253", "windows-1253 cp1253 x-cp1253"},
    {"windows-1254",
     "windows-1254 cp1254 csisolatin5 iso-8859-9 iso-ir-148 iso8859-9 iso88599 iso_8859-9 "
     "iso_8859-9:1989 l5 latin5 x-cp1254"},
    {"windows-1255", "windows-1255 cp1255 x-cp1255"},
    {"windows-1256", "windows-1256 cp1256 x-cp1256"},
    {"windows-1257", "windows-1257 cp1257 x-cp1257"},
    {"windows-1258", "windows-1258 cp1258 x-cp1258"},
    {"windows-874", "windows-874 dos-874 iso-8859-11 iso8859-11 iso885911 tis-620"},
    {"ISO-8859-2",
     "iso-8859-2 csisolatin2 iso-ir-101 iso8859-2 iso88592 iso_8859-2 iso_8859-2:1987 l2 latin2"},
    {"ISO-8859-3",
     "iso-8859-3 csisolatin3 iso-ir-109 iso8859-3 iso88593 iso_8859-3 iso_8859-3:1988 l3 latin3"},
    {"ISO-8859-4",
     "iso-8859-4 csisolatin4 iso-ir-110 iso8859-4 iso88594 iso_8859-4 iso_8859-4:1988 l4 latin4"},
    {"ISO-8859-5",
     "iso-8859-5 csisolatincyrillic cyrillic iso-ir-144 iso8859-5 iso88595 iso_8859-5 "
     "iso_8859-5:1988"},
    {"ISO-8859-6",
     "iso-8859-6 arabic asmo-708 csiso88596e csiso88596i csisolatinarabic ecma-114 iso-8859-6-e "
     "iso-8859-6-i iso-ir-127 iso8859-6 iso88596 iso_8859-6 iso_8859-6:1987"},
    {"ISO-8859-7",
     "iso-8859-7 csisolatingreek ecma-118 elot_928 greek greek8 iso-ir-126 iso8859-7 iso88597 "
     "iso_8859-7 iso_8859-7:1987 sun_eu_greek"},
    {"ISO-8859-8",
     "iso-8859-8 csiso88598e csisolatinhebrew hebrew iso-8859-8-e iso-ir-138 iso8859-8 iso88598 "
     "iso_8859-8 iso_8859-8:1988 visual csiso88598i iso-8859-8-i logical"},
    {"ISO-8859-10", "iso-8859-10 csisolatin6 iso-ir-157 iso8859-10 iso885910 l6 latin6"},
    {"ISO-8859-13", "iso-8859-13 iso8859-13 iso885913"},
    {"ISO-8859-14", "iso-8859-14 iso8859-14 iso885914"},
    {"ISO-8859-15", "iso-8859-15 csisolatin9 iso8859-15 iso885915 iso_8859-15 l9"},
    {"KOI8-R", "koi8-r cskoi8r koi koi8 koi8_r"},
    {"KOI8-U", "koi8-u koi8-ru"},
    {"ibm-866", "ibm866 866 cp866 csibm866"},
    {"macintosh", "macintosh csmacintosh mac x-mac-roman"},
    {"x-mac-cyrillic", "x-mac-cyrillic x-mac-ukrainian"},
    {"windows-936",
     "gb2312 gbk chinese csgb2312 csiso58gb231280 gb_2312 gb_2312-80 iso-ir-58 x-gbk"},
    {"gb18030", "gb18030"},
    {"Big5-HKSCS", "big5 big5-hkscs cn-big5 csbig5 x-x-big5"},
    {"EUC-JP", "euc-jp cseucpkdfmtjapanese x-euc-jp"},
    {"windows-31j", "shift_jis shift-jis sjis x-sjis csshiftjis ms932 ms_kanji windows-31j"},
    {"windows-949",
     "euc-kr cseuckr csksc56011987 iso-ir-149 korean ks_c_5601-1987 ks_c_5601-1989 ksc5601 "
     "ksc_5601 windows-949"},
};

constexpr std::string_view kSpace = " \t\n\f\r";

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
    return text.substr(0, text.find_last_not_of(kSpace) + 1);
}

bool hasLabel(std::string_view labels, std::string_view wanted)
{
    for (;;) {
        const std::size_t length = std::min(labels.find(' '), labels.size());
        if (HTEqualsNoCase(labels.substr(0, length), wanted)) {
            return true;
        }
        if (length == labels.size()) {
            return false;
        }
        labels.remove_prefix(length + 1);
    }
}

// ICU's own replacement is U+001A for a single byte.
void writeReplacement(const void * /*context*/, UConverterToUnicodeArgs *arguments,
                      const char * /*bytes*/, std::int32_t /*length*/,
                      UConverterCallbackReason reason, UErrorCode *status)
{
    if (reason <= UCNV_IRREGULAR) {
        constexpr UChar kReplacement = 0xFFFD;
        *status = U_ZERO_ERROR;
        ucnv_cbToUWriteUChars(arguments, &kReplacement, 1, 0, status);
    }
}

// The result of convert(text, room, &status), which returns the length that the result needs; it is
// called again if that is more than `room`.
template <typename Convert>
std::string converted(std::size_t room, Convert convert)
{
    std::string text(room, '\0');
    UErrorCode status = U_ZERO_ERROR;
    auto length = static_cast<std::size_t>(convert(text.data(), text.size(), &status));
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        text.resize(length);
        status = U_ZERO_ERROR;
        length = static_cast<std::size_t>(convert(text.data(), text.size(), &status));
    }
    text.resize(U_SUCCESS(status) ? length : 0);
    return text;
}

std::string fromUtf8(UConverter *converter, std::string_view text)
{
    return converted(2 * text.size(), [&](char *to, std::size_t room, UErrorCode *status) {
        return ucnv_fromAlgorithmic(converter, UCNV_UTF8, to, static_cast<std::int32_t>(room),
                                    text.data(), static_cast<std::int32_t>(text.size()), status);
    });
}

// Adds characters beyond ASCII, in a charset or as "&#NUMBER;". No charset here has one of the
// three marks in a character of several bytes; letters and digits in those stay as they are.
void addEncoded(std::string_view bytes, std::string *query)
{
    for (const char c : bytes) {
        if (static_cast<unsigned char>(c) < 0x7F && c != '&' && c != '#' && c != ';') {
            *query += c;
            continue;
        }
        std::array<char, 3> code{};
        query->append(code.data(), HTPercentEncode(c, code.data()));
    }
}

}  // namespace

std::unique_ptr<CACharset> CACharset::find(std::string_view label)
{
    label = trimmed(label);
    if (label.empty()) {
        return nullptr;
    }
    const auto *const row =
        std::find_if(std::begin(kCharsets), std::end(kCharsets),
                     [label](const Charset &charset) { return hasLabel(charset.labels, label); });
    if (row == std::end(kCharsets)) {
        return nullptr;
    }
    UErrorCode status = U_ZERO_ERROR;
    UConverter *const converter = ucnv_open(row->converter, &status);
    ucnv_setToUCallBack(converter, writeReplacement, nullptr, nullptr, nullptr, &status);
    ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr,
                          nullptr, &status);
    if (U_FAILURE(status)) {
        ucnv_close(converter);
        return nullptr;
    }
    return std::unique_ptr<CACharset>(new CACharset(converter));
}

CACharset::~CACharset()
{
    ucnv_close(converter_);
}

bool CACharset::isUtf8() const
{
    return ucnv_getType(converter_) == UCNV_UTF8;
}

std::string CACharset::toUtf8(std::string_view text) const
{
    return converted(2 * text.size(), [&](char *to, std::size_t room, UErrorCode *status) {
        return ucnv_toAlgorithmic(UCNV_UTF8, converter_, to, static_cast<std::int32_t>(room),
                                  text.data(), static_cast<std::int32_t>(text.size()), status);
    });
}

std::string CACharset::encodeQuery(std::string_view query) const
{
    constexpr auto isBeyondAscii = [](char c) { return static_cast<unsigned char>(c) > 0x7F; };
    std::string encoded;
    while (!query.empty()) {
        const auto *const begin = std::find_if(query.begin(), query.end(), isBeyondAscii);
        const auto *const end = std::find_if_not(begin, query.end(), isBeyondAscii);
        encoded.append(query.begin(), begin);
        addEncoded(fromUtf8(converter_, {begin, static_cast<std::size_t>(end - begin)}), &encoded);
        query.remove_prefix(static_cast<std::size_t>(end - query.begin()));
    }
    return encoded;
}

// label := "charset" { space } "=" { space } ( quote label quote | label )
std::string_view CACharsetLabel(std::string_view contentType)
{
    constexpr std::string_view kName = "charset";
    std::string_view rest = contentType;
    do {
        const auto *const found = std::search(rest.begin(), rest.end(), kName.begin(), kName.end(),
                                              [](char a, char b) { return HTLower(a) == b; });
        if (found == rest.end()) {
            return "";
        }
        rest.remove_prefix(static_cast<std::size_t>(found - rest.begin()) + kName.size());
        rest = trimmed(rest);
    } while (!rest.starts_with('='));
    rest = trimmed(rest.substr(1));
    if (!rest.starts_with('"') && !rest.starts_with('\'')) {
        return rest.substr(0, rest.find_first_of("; \t\n\f\r"));
    }
    const std::size_t close = rest.find(rest.front(), 1);
    return close == std::string_view::npos ? "" : rest.substr(1, close - 1);
}

bool CAIsUtf8(std::string_view text)
{
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    u_strFromUTF8(nullptr, 0, &length, text.data(), static_cast<std::int32_t>(text.size()),
                  &status);
    return status != U_INVALID_CHAR_FOUND;
}

// Eight bytes at a time, because each link is asked.
bool CAIsAscii(std::string_view text)
{
    std::uint64_t bits = 0;
    for (; text.size() >= sizeof bits; text.remove_prefix(sizeof bits)) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, text.data(), sizeof eight);
        bits |= eight;
    }
    for (const char c : text) {
        bits |= static_cast<unsigned char>(c);
    }
    return (bits & 0x8080808080808080) == 0;
}
