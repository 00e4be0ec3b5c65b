#include "url/CAwebHost.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unicode/uidna.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "HTString.h"
#include "url/CAcharset.h"

namespace {

using Text = std::optional<std::string_view>;

constexpr std::size_t kLongestHost = 1023;  // in any form; names in the DNS have 253 bytes at most

// The names that are searched for these are ASCII by then.
constexpr HTCharacterSet kForbidden = HTCharacterSet::andUnprintable(" #%/:<>?@[\\]^|");

Text copyTo(HTPool *pool, const char *text, std::size_t length)
{
    const char *const copy = pool->copy(text, length);
    return copy == nullptr ? Text() : Text({copy, length});
}

int hexDigit(char c)
{
    const char lower = HTLower(c);
    return HTIsDigit(c) ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Decodes each "%" with two hexadecimal digits behind it; others stay.
Text decodePercent(std::string_view text, HTPool *pool)
{
    char *const copy = pool->copy(text.data(), text.size());
    if (copy == nullptr) {
        return std::nullopt;
    }
    char *out = copy;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCoded = text[i] == '%' && text.size() - i > 2 && hexDigit(text[i + 1]) >= 0 &&
                             hexDigit(text[i + 2]) >= 0;
        *out++ = isCoded ? static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]))
                         : text[i];
        i += isCoded ? 2 : 0;
    }
    return Text({copy, static_cast<std::size_t>(out - copy)});
}

// Null when ICU cannot provide it. Open to all threads, and never closed.
const UIDNA *domainNames()
{
    static const UIDNA *const names = [] {
        UErrorCode error = U_ZERO_ERROR;
        const UIDNA *const opened =
            uidna_openUTS46(UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ |
                                UIDNA_NONTRANSITIONAL_TO_ASCII | UIDNA_NONTRANSITIONAL_TO_UNICODE,
                            &error);
        return U_SUCCESS(error) != 0 ? opened : nullptr;
    }();
    return names;
}

// The ASCII form of a domain name beyond ASCII, or with "xn--" labels, which must be valid.
Text domainToAscii(std::string_view name, HTPool *pool)
{
    // Browsers leave these to the DNS: real names break them.
    constexpr std::uint32_t kAccepted =
        UIDNA_ERROR_EMPTY_LABEL | UIDNA_ERROR_LABEL_TOO_LONG | UIDNA_ERROR_DOMAIN_NAME_TOO_LONG |
        UIDNA_ERROR_LEADING_HYPHEN | UIDNA_ERROR_TRAILING_HYPHEN | UIDNA_ERROR_HYPHEN_3_4;
    const UIDNA *const names = domainNames();
    if (names == nullptr) {
        return std::nullopt;
    }
    std::array<char, kLongestHost + 1> ascii{};
    UIDNAInfo info = UIDNA_INFO_INITIALIZER;
    UErrorCode error = U_ZERO_ERROR;
    const std::int32_t length =
        uidna_nameToASCII_UTF8(names, name.data(), static_cast<std::int32_t>(name.size()),
                               ascii.data(), kLongestHost, &info, &error);
    if (U_FAILURE(error) != 0 || (info.errors & ~kAccepted) != 0 || length <= 0) {
        return std::nullopt;
    }
    return copyTo(pool, ascii.data(), static_cast<std::size_t>(length));
}

bool hasPunycode(std::string_view name)
{
    constexpr std::string_view kPrefix = "xn--";
    while (!name.empty()) {
        if (HTEqualsNoCase(name.substr(0, kPrefix.size()), kPrefix)) {
            return true;
        }
        name.remove_prefix(std::min(name.find('.'), name.size() - 1) + 1);
    }
    return false;
}

Text lowerCase(std::string_view name, HTPool *pool)
{
    char *const copy = pool->copy(name.data(), name.size());
    if (copy == nullptr) {
        return std::nullopt;
    }
    std::transform(copy, copy + name.size(), copy, HTLower);
    return Text({copy, name.size()});
}

Text domainOf(std::string_view text, HTPool *pool)
{
    Text name = text.find('%') == std::string_view::npos ? text : decodePercent(text, pool);
    if (name && (!CAIsAscii(*name) || hasPunycode(*name))) {
        name = domainToAscii(*name, pool);
    } else if (name) {
        name = lowerCase(*name, pool);
    }
    return name && kForbidden.in(*name) == name->size() ? name : std::nullopt;
}

// number := decimal | "0" octal | "0x" [ hexadecimal ]
// Too large a number becomes UINT64_MAX.
std::optional<std::uint64_t> readNumber(std::string_view text)
{
    if (text.empty()) {
        return std::nullopt;
    }
    int base = 10;
    if (text.size() >= 2 && text[0] == '0') {
        const bool isHex = HTLower(text[1]) == 'x';
        base = isHex ? 16 : 8;
        text.remove_prefix(isHex ? 2 : 1);
    }
    if (text.empty()) {
        return 0;
    }
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (end != text.data() + text.size()) {
        return std::nullopt;
    }
    return error == std::errc() ? number : UINT64_MAX;
}

std::string_view withoutLastDot(std::string_view name)
{
    name.remove_suffix(name.size() > 1 && name.ends_with('.') ? 1 : 0);
    return name;
}

// True when the last label is a number, so that the name can only be an IPv4 address.
bool endsInNumber(std::string_view name)
{
    const std::string_view all = withoutLastDot(name);
    const std::string_view last = all.substr(all.rfind('.') + 1);
    const bool isDigits = !last.empty() && std::all_of(last.begin(), last.end(), HTIsDigit);
    return isDigits || readNumber(last).has_value();
}

// The last of one to four numbers stands for all bytes that are left.
std::optional<std::uint32_t> readIPv4(std::string_view text)
{
    constexpr std::size_t kBytes = 4;
    text = withoutLastDot(text);
    std::uint64_t address = 0;
    for (std::size_t left = kBytes; left > 0; --left) {
        const std::size_t dot = text.find('.');
        const std::optional<std::uint64_t> number = readNumber(text.substr(0, dot));
        const bool isLast = dot == std::string_view::npos;
        const std::size_t bits = isLast ? 8 * left : 8;
        if (!number || *number >> bits != 0) {
            return std::nullopt;
        }
        address = address << bits | *number;
        if (isLast) {
            return static_cast<std::uint32_t>(address);
        }
        text.remove_prefix(dot + 1);
    }
    return std::nullopt;
}

Text writeIPv4(std::uint32_t address, HTPool *pool)
{
    const in_addr binary{.s_addr = htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &binary, text.data(), text.size());
    return copyTo(pool, text.data(), std::strlen(text.data()));
}

constexpr std::size_t kGroups = 8;
using Groups = std::array<std::uint16_t, kGroups>;

std::optional<Groups> readIPv6(std::string_view text)
{
    std::array<char, INET6_ADDRSTRLEN> copy{};
    in6_addr binary{};
    if (text.size() >= copy.size() || text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    std::copy(text.begin(), text.end(), copy.begin());
    if (inet_pton(AF_INET6, copy.data(), &binary) != 1) {
        return std::nullopt;
    }
    Groups groups{};
    for (std::size_t i = 0; i < kGroups; ++i) {
        groups[i] =
            static_cast<std::uint16_t>(binary.s6_addr[2 * i] << 8U | binary.s6_addr[2 * i + 1]);
    }
    return groups;
}

// The first of the longest runs of zeros in an address.
struct ZeroRun {
    std::size_t begin = 0;
    std::size_t length = 0;
};

ZeroRun longestZeroRun(const Groups &groups)
{
    ZeroRun longest;
    ZeroRun run;
    for (std::size_t i = 0; i < kGroups; ++i) {
        run = groups[i] != 0 ? ZeroRun{i + 1, 0} : ZeroRun{run.begin, run.length + 1};
        longest = run.length > longest.length ? run : longest;
    }
    return longest;
}

// Not inet_ntop(): that writes some addresses with an IPv4 address at their end.
Text writeIPv6(const Groups &groups, HTPool *pool)
{
    const ZeroRun zeros = longestZeroRun(groups);
    std::array<char, sizeof("[ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff]")> text{'['};
    char *out = text.data() + 1;
    for (std::size_t i = 0; i < kGroups; ++i) {
        if (zeros.length > 1 && i == zeros.begin) {
            *out++ = ':';
            *out++ = ':';
            i += zeros.length - 1;
            continue;
        }
        if (i > 0 && out[-1] != ':') {
            *out++ = ':';
        }
        out = std::to_chars(out, text.data() + text.size(), groups[i], 16).ptr;
    }
    *out++ = ']';
    return copyTo(pool, text.data(), static_cast<std::size_t>(out - text.data()));
}

}  // namespace

std::optional<std::string_view> CAWebHost(std::string_view text, HTPool *pool)
{
    if (text.empty() || text.size() > kLongestHost) {
        return std::nullopt;
    }
    if (text.front() == '[') {
        const bool isClosed = text.ends_with(']');
        const std::optional<Groups> groups =
            isClosed ? readIPv6(text.substr(1, text.size() - 2)) : std::nullopt;
        return groups ? writeIPv6(*groups, pool) : std::nullopt;
    }
    const Text name = domainOf(text, pool);
    if (!name || name->empty() || !endsInNumber(*name)) {
        return name && !name->empty() ? name : std::nullopt;
    }
    const std::optional<std::uint32_t> address = readIPv4(*name);
    return address ? writeIPv4(*address, pool) : std::nullopt;
}
