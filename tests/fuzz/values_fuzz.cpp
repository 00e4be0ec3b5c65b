// Words and values of a configuration line, against regular expressions of their grammars.
//
// Input: the text; each function gets a copy of it.
#include <climits>
#include <map>
#include <regex>
#include <utility>

#include "CAwhen.h"
#include "Fuzz.h"
#include "GuardedText.h"
#include "HTArgs.h"
#include "HTString.h"

namespace {

constexpr auto kHere = std::regex_constants::match_continuous;

std::vector<std::string> wordsOf(std::string line)
{
    static const std::regex next(R"re([\x01-\x20]*(?!#)((?:"[^"]*"|\\[ \t#]|[^\x01-\x20])+))re");
    static const std::regex marks(R"re("([^"]*)"|\\([ \t#]))re");
    std::vector<std::string> words;
    for (std::smatch match; words.size() < kMaxArgs && std::regex_search(line, match, next, kHere);
         line = match.suffix().str()) {
        words.push_back(std::regex_replace(match.str(1), marks, "$1$2"));
    }
    return words;
}

// The mantissa has 64 bits: exact up to where it is cut.
long saturated(long double value)
{
    return value < 0x1p63L ? static_cast<long>(value) : LONG_MAX;
}

struct Duration {
    int valid;
    long seconds;

    bool operator==(const Duration &) const = default;
};

// Of a trimmed, lower-case text.
Duration durationOf(std::string text, int defaultUnit)
{
    static const std::map<std::string, long> units = {
        {"sec", 1},       {"min", 60},        {"hour", 3600},     {"day", 86400},
        {"week", 604800}, {"month", 2592000}, {"year", 31536000}, {"forever", 315360000}};
    static const std::regex token(
        R"([\x01-\x20]*(\d*)[\x01-\x20]*)"
        R"((?:(sec|min|hour|day|week|month|year|forever)[a-z,]*|(:|$))?)");
    static const std::regex bare(R"(\d+)");
    if (text.empty() || std::regex_match(text, bare)) {
        return {text.empty() ? 0 : 1, saturated(saturated(std::strtold(text.c_str(), nullptr)) *
                                                static_cast<long double>(defaultUnit))};
    }
    Duration sum{1, 0};
    std::smatch match;
    for (long field = 3600; !text.empty(); text = match.suffix().str()) {
        std::regex_search(text, match, token, kHere);
        if (!match[2].matched && (field == 0 || !match[3].matched)) {
            return {0, sum.seconds};
        }
        const long double number = saturated(std::strtold(match.str(1).c_str(), nullptr));
        const long unit =
            match[2].matched ? units.at(match.str(2)) : std::exchange(field, field / 60);
        sum.seconds = saturated(static_cast<long double>(sum.seconds) + saturated(number * unit));
    }
    return sum;
}

bool is(const std::string &word, const char *words)
{
    static std::map<std::string, std::regex> compiled;
    return std::regex_match(word, compiled.try_emplace(words, words).first->second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Input input(data, std::min<std::size_t>(size, 1024));
    const std::string given(input.rest().substr(0, input.rest().find('\0')));
    const GuardedText line(given);
    const std::vector<std::string> expected = wordsOf(given);
    char *words[kMaxArgs];
    require(parse_args(line.data(), words) == std::ssize(expected), "as many words");
    for (std::size_t i = 0; i < kMaxArgs; ++i) {
        require(words[i] >= line.data() && words[i] <= line.data() + given.size(), "in the line");
        require(words[i] == (i < expected.size() ? expected[i] : ""), "the same word");
    }

    std::string lower = given;
    std::transform(lower.begin(), lower.end(), lower.begin(), HTLower);
    std::string word = lower;
    std::erase_if(word, [](char c) { return c == '-' || c == '_'; });
    const GuardedText yes(given);
    const GuardedText no(given);
    const GuardedText when(given);
    require(positive(yes.data()) == is(word, R"(yes|on|ok|(enable|pass|always)[\s\S]*)"), "yes");
    require(negative(no.data()) == is(word, R"(no|off|none|(disable|fail|never)[\s\S]*)"), "no");
    const _when known = is(word, "always|yes|on") ? ALWAYS
                        : is(word, "admin")       ? ADMIN_ONLY
                        : is(word, "topn")        ? TOPN_ONLY
                                                  : NEVER;
    require(CAParseWhen(when.data()) == known, "when");
    require(yes.data() == word && no.data() == word && when.data() == word, "in place");

    static const std::regex ends(R"(^[\x01-\x20]+|[\x01-\x20]+$)");
    lower = std::regex_replace(lower, ends, "");
    for (const int unit : {1, 86400}) {
        const GuardedText time(given);
        Duration found{0, -1};
        found.valid = parse_time(time.data(), unit, &found.seconds);
        require(found == durationOf(lower, unit), "the same duration");
    }
    return 0;
}
