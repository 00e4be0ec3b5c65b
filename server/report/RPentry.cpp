#include "RPentry.h"

#include <simdjson.h>

#include <array>
#include <charconv>
#include <chrono>
#include <string>

namespace {

using simdjson::ondemand::field;
using simdjson::ondemand::value;

static_assert(RPEntryReader::kPadding >= simdjson::SIMDJSON_PADDING);

// The values of a line that need a second look.
struct Texts {
    std::string_view time;
    std::string_view verdict;
};

// The text with this key, and where it is kept.
template <typename Record>
struct TextRow {
    std::string_view key;
    std::string_view Record::*text;
};
constexpr TextRow<Texts> kTexts[] = {{"time", &Texts::time}, {"verdict", &Texts::verdict}};
constexpr TextRow<RPEntry> kEntryTexts[] = {{"url", &RPEntry::url}, {"why", &RPEntry::why}};

// A number beyond its limit is damage; sums of such numbers over all lines of a log do not
// overflow.
constexpr std::int64_t kMaxNumber = std::int64_t{1} << 40;
constexpr std::int64_t kMaxSeconds = std::int64_t{1} << 25;  // more than a year

struct NumberRow {
    std::string_view key;
    std::int64_t RPEntry::*number;
    std::int64_t limit = kMaxNumber;
};
constexpr std::array<NumberRow, 7> kNumbers = {{
    {"status", &RPEntry::status},
    {"bytes", &RPEntry::bytes},
    {"ms", &RPEntry::milliseconds, kMaxSeconds * 1000},
    {"cut", &RPEntry::cut},
    {"more", &RPEntry::more},
    {"seconds", &RPEntry::seconds, kMaxSeconds},
    {"left", &RPEntry::left},
}};

bool readText(value &from, std::string_view *text)
{
    return from.get_string().get(*text) == simdjson::SUCCESS;
}

bool readNumber(value &from, std::int64_t limit, std::int64_t *number)
{
    return from.get_int64().get(*number) == simdjson::SUCCESS && *number >= 0 && *number <= limit;
}

bool readField(std::string_view key, value &from, RPEntry *entry, Texts *texts)
{
    for (const NumberRow &row : kNumbers) {
        if (row.key == key) {
            return readNumber(from, row.limit, &(entry->*row.number));
        }
    }
    for (const TextRow<Texts> &row : kTexts) {
        if (row.key == key) {
            return readText(from, &(texts->*row.text));
        }
    }
    for (const TextRow<RPEntry> &row : kEntryTexts) {
        if (row.key == key) {
            return readText(from, &(entry->*row.text));
        }
    }
    return key != "stopped" || from.get_bool().get(entry->stopped) == simdjson::SUCCESS;
}

bool readObject(simdjson::ondemand::document &document, RPEntry *entry, Texts *texts)
{
    simdjson::ondemand::object object;
    if (document.get_object().get(object) != simdjson::SUCCESS) {
        return false;
    }
    for (auto found : object) {
        field pair;
        std::string_view key;
        if (std::move(found).get(pair) != simdjson::SUCCESS ||
            pair.unescaped_key().get(key) != simdjson::SUCCESS ||
            !readField(key, pair.value(), entry, texts)) {
            return false;
        }
    }
    // Nothing may follow the object.
    return document.current_location().error() == simdjson::OUT_OF_BOUNDS;
}

// True if the line names a URL, or stands for dropped links of the run, which have no page.
bool hasSubject(const RPEntry &entry)
{
    return !entry.url.empty() || (entry.verdict == RPVerdict::Dropped && entry.more > 0);
}

// Milliseconds since the epoch of a text such as "2026-11-21T19:45:00.123Z"; -1 for any other.
std::int64_t timeIn(std::string_view text)
{
    constexpr std::string_view kForm = "0000-00-00T00:00:00.000Z";
    if (text.size() != kForm.size()) {
        return -1;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (kForm[i] == '0' ? !isDigit : text[i] != kForm[i]) {
            return -1;
        }
    }
    const auto part = [text](std::size_t at, std::size_t length) {
        int number = 0;
        std::from_chars(text.data() + at, text.data() + at + length, number);
        return number;
    };
    using namespace std::chrono;
    const year_month_day date(year(part(0, 4)), month(static_cast<unsigned>(part(5, 2))),
                              day(static_cast<unsigned>(part(8, 2))));
    const milliseconds time = sys_days(date).time_since_epoch() + hours(part(11, 2)) +
                              minutes(part(14, 2)) + seconds(part(17, 2)) +
                              milliseconds(part(20, 3));
    return date.ok() ? time.count() : -1;
}

}  // namespace

struct RPEntryReader::Parser {
    simdjson::ondemand::parser parser;
};

RPEntryReader::RPEntryReader() : parser_(new Parser) {}

RPEntryReader::~RPEntryReader() = default;

bool RPEntryReader::read(std::string_view line, RPEntry *entry)
{
    *entry = RPEntry();
    Texts texts;
    simdjson::ondemand::document document;
    if (parser_->parser.iterate(line.data(), line.size(), line.size() + kPadding).get(document) !=
            simdjson::SUCCESS ||
        !readObject(document, entry, &texts)) {
        return false;
    }
    entry->time = timeIn(texts.time);
    const std::optional<RPVerdict> verdict = RPVerdictOf(texts.verdict);
    entry->verdict = verdict.value_or(RPVerdict::Unknown);
    return entry->time >= 0 && (entry->isRun() || (verdict && hasSubject(*entry)));
}
