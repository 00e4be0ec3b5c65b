#include "report/CAverdict.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdlib>

#include "HTString.h"

namespace {

// What the cache's own headers say about a response.
enum class Word : std::uint8_t {
    None,
    Hit,
    OldCopy,    // served, because the origin failed
    Updating,   // served, because another request was fetching a new one
    Fetched,    // or revalidated, if the cache does not make a difference
    Missed,     // fetched, because there was no copy
    Confirmed,  // the origin said that the copy is still good
    Unkept,     // fetched, and not stored
};

// How caches name themselves in "Via:".
constexpr std::string_view kSquid = "(squid";
constexpr std::string_view kVarnish = "(Varnish/";
constexpr std::string_view kTrafficServer = "(ApacheTrafficServer/";

// A copy of this age, in seconds, may still be newer than the request: clocks count whole seconds.
constexpr std::int32_t kJustNow = 1;
// A clock may be behind by this many seconds.
constexpr std::int32_t kClockError = 60;

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.size() >= prefix.size() &&
           strncasecmp(text.data(), prefix.data(), prefix.size()) == 0;
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

// Cuts off and returns, trimmed, the text before the first `mark` outside quotes, or all of it if
// there is none. The mark is removed.
std::string_view takeUntil(std::string_view *text, char mark)
{
    if (text->empty()) {
        return {};
    }
    bool quoted = false;
    std::size_t at = std::min(text->find(mark), text->size());
    at = std::min(text->substr(0, at).find('"'), at);  // quotes are rare
    for (; at < text->size() && (quoted || (*text)[at] != mark); ++at) {
        if ((*text)[at] == '"') {
            quoted = !quoted;
        } else if (quoted && (*text)[at] == '\\') {
            ++at;
        }
    }
    const std::string_view taken = text->substr(0, at);
    text->remove_prefix(std::min(text->size(), at + 1));
    return HTWithoutBlanks(taken);
}

// The last member of a list, which the cache next to the agent added; empty for an empty list.
std::string_view lastMember(std::string_view list)
{
    std::string_view last;
    while (!list.empty()) {
        last = takeUntil(&list, ',');
    }
    return last;
}

// The value of `text`, all of which must be a number; -1 if not.
std::int32_t numberIn(std::string_view text)
{
    std::int32_t number = -1;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? number : -1;
}

// The word that follows from the status with which the origin answered the cache.
Word byForwardStatus(std::int32_t status, Word word)
{
    constexpr std::int32_t kNotModified = 304;
    constexpr std::int32_t kServerError = 500;
    return status == kNotModified ? Word::Confirmed : status >= kServerError ? Word::OldCopy : word;
}

//     cache := name { ';' ( "hit" | "fwd=" reason | "fwd-status=" status | "stored" | key '=' value
//     ) }
//
// A flag may have a value: "hit=?0" means no hit. The response itself has no error status, so that
// one from the origin means that it was not passed on.
Word fromCacheStatus(std::string_view member)
{
    Word word = Word::None;
    std::int32_t forwarded = 0;
    takeUntil(&member, ';');
    while (!member.empty()) {
        std::string_view value = takeUntil(&member, ';');
        const std::string_view key = takeUntil(&value, '=');
        if (key == "hit" && value != "?0") {
            return Word::Hit;
        }
        if (key == "stored" && value == "?0") {
            return Word::Unkept;
        }
        if (key == "fwd") {
            const bool missed = value == "miss" || value == "uri-miss" || value == "vary-miss";
            word = missed ? Word::Missed : Word::Fetched;
        }
        if (key == "fwd-status") {
            forwarded = numberIn(value);
        }
    }
    return byForwardStatus(forwarded, word);
}

// True when such a member says that the cache has stored the response.
bool saysStored(std::string_view member)
{
    bool isStored = false;
    takeUntil(&member, ';');
    while (!member.empty()) {
        std::string_view value = takeUntil(&member, ';');
        isStored = (takeUntil(&value, '=') == "stored" && value != "?0") || isStored;
    }
    return isStored;
}

// The beginning of a member of "X-Cache:", in upper or lower case. In Squid and httpd " from HOST"
// follows it.
struct XCacheRow {
    std::string_view start;
    Word word;
};
constexpr std::array<XCacheRow, 7> kXCache = {{
    {"HIT", Word::Hit},
    {"STALE", Word::OldCopy},      // nginx
    {"UPDATING", Word::Updating},  // nginx
    {"MISS", Word::Fetched},
    {"BYPASS", Word::Fetched},        // nginx, configured to fetch
    {"EXPIRED", Word::Fetched},       // nginx
    {"REVALIDATE", Word::Confirmed},  // httpd, and nginx with a "D"
}};

std::string_view hostIn(std::string_view member)
{
    constexpr std::string_view kFrom = " from ";
    const std::size_t at = member.rfind(kFrom);
    return at == std::string_view::npos ? "" : member.substr(at + kFrom.size());
}

Word fromXCache(const CACacheHeaders &headers)
{
    const std::string_view member = lastMember(headers.xCache);
    // Squid and httpd also say MISS when a copy was replaced; Squid's X-Cache-Lookup shows whether
    // there was a copy.
    if (member == "MISS" ||
        (startsWith(member, "MISS") && startsWith(lastMember(headers.xCacheLookup), "MISS"))) {
        return Word::Missed;
    }
    const auto *const row =
        std::find_if(kXCache.begin(), kXCache.end(),
                     [member](const XCacheRow &r) { return startsWith(member, r.start); });
    return row == kXCache.end() ? Word::None : row->word;
}

// The value is the number of the request and, for a hit, that of the request that fetched the copy.
Word fromXVarnish(std::string_view value)
{
    value = HTWithoutBlanks(value);
    if (value.empty()) {
        return Word::None;
    }
    return contains(value, " ") ? Word::Hit : Word::Fetched;
}

// Traffic Server's codes in "Via:", such as "[uScMsSfWpSeN:t cCMp sS]" or "[cMsSfW]". The letter
// after "c" shows what the cache had (M: nothing), the one after "s" what the origin answered
// (blank: no request was sent to it, E: nothing of use, N: the copy is still good), the one after
// "f" what was done to the copy (blank: nothing).
Word fromTrafficServer(std::string_view member)
{
    const std::size_t open = member.rfind('[');
    std::string_view codes = open == std::string_view::npos ? "" : member.substr(open + 1);
    if (codes.starts_with('u')) {
        codes.remove_prefix(std::min<std::size_t>(2, codes.size()));
    }
    if (codes.size() < 6 || codes[0] != 'c' || codes[2] != 's' || codes[4] != 'f') {
        return Word::None;
    }
    if (codes[3] == ' ') {
        return Word::Hit;
    }
    if (codes[3] == 'E' && codes[1] != 'M') {
        return Word::OldCopy;
    }
    if (codes[5] == ' ') {
        return Word::Unkept;
    }
    if (codes[3] == 'N') {
        return Word::Confirmed;
    }
    return codes[1] == 'M' ? Word::Missed : Word::Fetched;
}

// What a cache with headers of its own says, if that is the cache next to the agent.
Word fromOwnHeaders(const CACacheHeaders &headers)
{
    const std::string_view member = lastMember(headers.via);
    if (contains(member, kVarnish)) {
        return fromXVarnish(headers.xVarnish);
    }
    return contains(member, kTrafficServer) ? fromTrafficServer(member) : Word::None;
}

// The member of "Cache-Status:" that the cache next to the agent added; empty if it did not. The
// last member of "Via:" may contain its name, by which its headers are recognised.
//
//     member := protocol name [ '(' comment ')' ]
std::string_view ownStatus(const CACacheHeaders &headers)
{
    std::string_view member = lastMember(headers.via);
    takeUntil(&member, ' ');
    const std::string_view name = takeUntil(&member, ' ');
    const bool ownXCache = !name.empty() && hostIn(lastMember(headers.xCache)) == name;
    return ownXCache || fromOwnHeaders(headers) != Word::None ? ""
                                                              : lastMember(headers.cacheStatus);
}

// What the cache next to the agent says.
Word ownWord(const CACacheHeaders &headers)
{
    Word word = fromOwnHeaders(headers);
    word = word == Word::None ? fromCacheStatus(ownStatus(headers)) : word;
    return word == Word::None ? fromXCache(headers) : word;
}

// Seconds since the epoch of a text such as "Sun, 06 Nov 1994 08:49:37 GMT"; -1 for any other.
std::time_t timeOf(std::string_view text)
{
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    if (text.size() != 29 || !text.ends_with(" GMT")) {
        return -1;
    }
    const auto part = [text](std::size_t at, std::size_t length) {
        return numberIn(text.substr(at, length));
    };
    const std::size_t month = kMonths.find(text.substr(8, 3));
    if (month == std::string_view::npos || month % 3 != 0 || part(5, 2) < 0 || part(12, 4) < 0 ||
        part(17, 2) < 0 || part(20, 2) < 0 || part(23, 2) < 0) {
        return -1;
    }
    const std::chrono::year_month_day date(std::chrono::year(part(12, 4)),
                                           std::chrono::month(static_cast<unsigned>(month / 3 + 1)),
                                           std::chrono::day(static_cast<unsigned>(part(5, 2))));
    if (!date.ok()) {
        return -1;
    }
    const std::chrono::seconds seconds =
        std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(part(17, 2)) +
        std::chrono::minutes(part(20, 2)) + std::chrono::seconds(part(23, 2));
    return seconds.count();
}

// The age of the response in seconds: its "Age:"; without one, the age of its "Date:", if that is
// too old to be explained by a wrong clock; or -1.
std::int32_t ageOf(const CACacheHeaders &headers, std::time_t requested)
{
    std::string_view list = headers.age;
    if (const std::string_view first = takeUntil(&list, ','); !first.empty()) {
        const bool number = std::all_of(first.begin(), first.end(), HTIsDigit);
        return number ? HTInteger(first) : -1;
    }
    const std::time_t date = timeOf(HTWithoutBlanks(headers.date));
    if (date < 0 || requested - date <= kClockError) {
        return -1;
    }
    return static_cast<std::int32_t>(std::min<std::time_t>(requested - date, INT32_MAX));
}

// True when the cache next to the agent names itself so in "Via:".
bool isFrom(const CACacheHeaders &headers, std::string_view comment)
{
    return contains(lastMember(headers.via), comment);
}

// Traffic Server does not tell a new copy from an old one that it serves because the origin
// answered with an error. But it then lets the old one expire half an hour from now.
bool isHeldOver(const CAExchange &exchange)
{
    constexpr std::int64_t kHeldFor = 1800;
    const std::int64_t now = (exchange.started + exchange.milliseconds) / 1000;
    const std::time_t expires = timeOf(HTWithoutBlanks(exchange.headers.expires));
    return expires >= 0 && isFrom(exchange.headers, kTrafficServer) &&
           std::abs(expires - now - kHeldFor) <= kClockError;
}

// The word that follows from the age of the copy. A hit may be a copy that was fetched a moment ago
// for somebody else. Squid says HIT, too, when the origin has just confirmed the copy. Without an
// age nothing follows: nginx sends no "Age:", and replaces "Date:".
Word byAge(Word word, bool isFresh, const CAExchange &exchange)
{
    if (!isFresh) {
        return word == Word::Fetched && isHeldOver(exchange) ? Word::OldCopy
               : word == Word::None                          ? Word::Hit
                                                             : word;
    }
    if (word == Word::Hit && isFrom(exchange.headers, kSquid)) {
        return Word::Confirmed;
    }
    return word == Word::None || word == Word::Hit ? Word::Fetched : word;
}

// Seconds in a directive such as "max-age=60"; -1 when the value is no number.
std::int32_t secondsIn(std::string_view value)
{
    if (value.size() > 1 && value.front() == '"') {
        value = value.substr(1, value.size() - 2);
    }
    const bool isNumber = !value.empty() && std::all_of(value.begin(), value.end(), HTIsDigit);
    return isNumber ? HTInteger(value) : -1;
}

// What "Cache-Control:" says to a shared cache; lifetimes in seconds, -1: none.
struct Control {
    bool noStore = false;
    bool isPrivate = false;
    std::int32_t maxAge = -1;
    std::int32_t sharedMaxAge = -1;
};

Control readControl(std::string_view list)
{
    Control control;
    while (!list.empty()) {
        std::string_view value = takeUntil(&list, ',');
        const bool isFlag = !contains(value, "=");
        const std::string_view key = takeUntil(&value, '=');
        if (HTEqualsNoCase(key, "no-store")) {
            control.noStore = control.noStore || isFlag;
        } else if (HTEqualsNoCase(key, "private")) {
            control.isPrivate = control.isPrivate || isFlag;  // with a value: some headers only
        } else if (HTEqualsNoCase(key, "max-age")) {
            control.maxAge = secondsIn(HTWithoutBlanks(value));
        } else if (HTEqualsNoCase(key, "s-maxage")) {
            control.sharedMaxAge = secondsIn(HTWithoutBlanks(value));
        }
    }
    return control;
}

// True when the response says how long it may be used, and that is not over at once.
bool hasLifetime(const Control &control, const CAExchange &exchange)
{
    if (control.sharedMaxAge >= 0 || control.maxAge >= 0) {
        return (control.sharedMaxAge >= 0 ? control.sharedMaxAge : control.maxAge) > 0;
    }
    const std::time_t date = timeOf(HTWithoutBlanks(exchange.headers.date));
    return timeOf(HTWithoutBlanks(exchange.headers.expires)) >
           (date >= 0 ? date : exchange.started / 1000);
}

// Redirections that a cache does not store, even with a lifetime.
struct UnkeptRow {
    std::int32_t status;
    std::string_view cache;
};
constexpr std::array<UnkeptRow, 3> kUnkept = {{{303, kSquid}, {303, kVarnish}, {308, kVarnish}}};

constexpr std::string_view kNotStored = "not stored by the cache";

// Why the cache cannot have stored the response; empty when it may have. A temporary redirection
// is stored only if its origin says for how long, or the cache is configured to keep it and says
// so.
std::string_view whyUnkept(const CAExchange &exchange)
{
    const std::int32_t status = exchange.status;
    const Control control = readControl(exchange.headers.cacheControl);
    if (control.noStore || control.isPrivate) {
        return control.noStore ? "no-store" : "private";
    }
    const bool isTemporary = status == 302 || status == 303 || status == 307;
    if (isTemporary && !hasLifetime(control, exchange) &&
        !saysStored(ownStatus(exchange.headers))) {
        return "redirection without freshness";
    }
    const bool isNever = std::any_of(kUnkept.begin(), kUnkept.end(), [&](const UnkeptRow &row) {
        return row.status == status && isFrom(exchange.headers, row.cache);
    });
    return isNever ? kNotStored : "";
}

// The verdict on a response that the cache served, or that it may have stored.
CAJudgement judgeWord(Word word, std::int32_t age)
{
    switch (word) {
    case Word::Hit: return {CAVerdict::FromCache, age, ""};
    case Word::OldCopy: return {CAVerdict::FromCache, age, "origin failed, old copy served", true};
    case Word::Updating: return {CAVerdict::FromCache, age, "another request was fetching it"};
    case Word::Fetched: return {CAVerdict::Refreshed, -1, ""};
    case Word::Missed: return {CAVerdict::Stored, -1, ""};
    case Word::Confirmed: return {CAVerdict::Unchanged, -1, ""};
    case Word::Unkept: return {CAVerdict::NotCacheable, -1, std::string(kNotStored)};
    case Word::None: break;
    }
    return {CAVerdict::Unknown, -1, ""};
}

// True for a word that shows that the cache has a copy.
bool showsCopy(Word word)
{
    return word == Word::Hit || word == Word::OldCopy || word == Word::Updating ||
           word == Word::Confirmed;
}

// What the cache did to make a complete response of this age.
Word wordOn(const CAExchange &exchange, std::int32_t age)
{
    const auto took = static_cast<std::int32_t>(exchange.milliseconds / 1000);
    const std::int32_t fresh = took > INT32_MAX - kJustNow ? INT32_MAX : took + kJustNow;
    const Word word = ownWord(exchange.headers);
    if (word == Word::Hit && startsWith(HTWithoutBlanks(exchange.headers.warning), "111")) {
        return Word::OldCopy;  // Squid and httpd: "Revalidation failed"
    }
    return age < 0 ? word : byAge(word, age <= fresh, exchange);
}

// Judges a complete response.
CAJudgement judgeAnswer(const CAExchange &exchange)
{
    const std::int32_t age = ageOf(exchange.headers, exchange.started / 1000);
    const Word word = wordOn(exchange, age);
    const std::string_view why = showsCopy(word) ? "" : whyUnkept(exchange);
    return why.empty() ? judgeWord(word, age)
                       : CAJudgement{CAVerdict::NotCacheable, -1, std::string(why)};
}

std::string reasonOf(const CAExchange &exchange)
{
    if (exchange.status == 0) {
        std::string text(CAFailureText(exchange.failure));
        text += exchange.reason.empty() ? "" : ": ";
        return text += exchange.reason;
    }
    switch (exchange.failure) {
    case CAFailure::TooLong:
    case CAFailure::TooSlow:
    case CAFailure::Stopped: return std::string(CAFailureText(exchange.failure));
    case CAFailure::TimedOut: return "timed out within the answer";
    default: return "connection broke within the answer";
    }
}

constexpr std::int64_t kDefaultRest = 10;  // seconds, when the host does not say

}  // namespace

CAJudgement CAJudge(const CAExchange &exchange)
{
    const std::int32_t status = exchange.status;
    if (status == 0 || exchange.failure != CAFailure::None) {
        return {.why = reasonOf(exchange)};
    }
    if (status < 200 || status >= 400) {
        return {.why = "status " + std::to_string(status)};
    }
    return judgeAnswer(exchange);
}

bool CAIsWorthRetrying(const CAExchange &exchange)
{
    switch (exchange.failure) {
    case CAFailure::Connect:
    case CAFailure::Send:
    case CAFailure::Closed:
    case CAFailure::Reset:
    case CAFailure::TimedOut: return exchange.status == 0;
    case CAFailure::None:
    case CAFailure::Address:
    case CAFailure::Certificate:
    case CAFailure::Handshake:
    case CAFailure::Request:
    case CAFailure::BadResponse:
    case CAFailure::TooLong:
    case CAFailure::TooSlow:
    case CAFailure::Stopped: return false;
    }
    return false;
}

std::int64_t CAAskedRest(std::int32_t status, std::string_view retryAfter)
{
    if (status != 429 && status != 503) {
        return 0;
    }
    const std::string_view value = HTWithoutBlanks(retryAfter);
    const bool isNumber = !value.empty() && HTIsDigit(value.front());
    return isNumber ? std::max<std::int64_t>(HTDecimal(value), 1) : kDefaultRest;
}
