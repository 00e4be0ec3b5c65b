// Wildcard matches against a matcher that tries what the rules say, and the time of many stars.
//
// Input: a line with the pattern, then the text. Behind a line "100 stars": a line that follows
// each of that many stars, then a text that is repeated up to 4 KiB.
#include <ctime>
#include <memory>
#include <set>

#include "Fuzz.h"
#include "GuardedText.h"
#include "HTString.h"
#include "HTWild.h"

namespace {

enum class Comparison : std::uint8_t { Exact, IgnoreCase, Decoding };

struct Segment {
    bool wild = false;
    std::string text;
};

std::vector<Segment> compiled(const std::string &pattern)
{
    std::vector<Segment> segments(1);
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '*') {
            const bool escape = pattern[i] == '\\' && ++i > 0;
            segments.back().text += escape && i == pattern.size() ? '\n' : pattern[i];
            continue;
        }
        if (!segments.back().text.empty()) {
            segments.emplace_back();
        }
        segments.back().wild = true;
    }
    return segments;
}

struct Reference {
    const std::vector<Segment> segments;
    const std::string text;
    const Comparison comparison;
    std::set<std::pair<std::size_t, std::size_t>> failed = {};

    // Do the segments from `index` on match from `at` on?
    bool matches(std::size_t index, std::size_t at)
    {
        if (index == segments.size()) {
            return at == text.size();
        }
        const auto &[wild, literal] = segments[index];
        if (!mayBegin(literal, at) || !failed.insert({index, at}).second) {
            return false;
        }
        if (wild && literal.empty()) {
            return true;
        }
        for (std::size_t found = at; found < text.size();) {
            std::size_t end = found;
            const bool same = std::all_of(literal.begin(), literal.end(), [&](char wanted) {
                const std::size_t length = lengthOf(wanted, end);
                end += length;
                return length > 0;
            });
            const bool matched = same && matches(index + 1, end);
            if (matched || !wild) {
                return matched;
            }
            const bool behind = same && comparison != Comparison::Decoding;
            found = behind ? end : found + (escaped(found) < 0 ? 1 : 3);
        }
        return false;
    }
    // Nothing but "~" itself or a "/~" reaches into a user's directory.
    [[nodiscard]] bool mayBegin(std::string_view literal, std::size_t at) const
    {
        const auto begins = [](std::string_view t) {
            return t.starts_with("/~") || t.starts_with("file:/~");
        };
        const std::size_t scheme = text.find("://");
        const bool user = scheme != text.npos && at > 0 && text.find('/', scheme + 3) == at - 1 &&
                          text[at] == '~';
        return comparison == Comparison::Decoding || begins(literal) ||
               (user ? literal.starts_with('~') : !begins(std::string_view(text).substr(at)));
    }
    // The value of an escape; -1 for none.
    [[nodiscard]] int escaped(std::size_t at) const
    {
        const std::string digits = text.substr(at, 3).substr(at < text.size() ? 1 : 0);
        const bool escape = comparison == Comparison::Decoding && text[at] == '%' &&
                            digits.size() == 2 &&
                            digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos;
        return escape ? std::stoi(digits, nullptr, 16) : -1;
    }
    // How many bytes of the text are this character; 0 when it stands not there.
    [[nodiscard]] std::size_t lengthOf(char wanted, std::size_t at) const
    {
        const bool any = comparison == Comparison::IgnoreCase;
        const bool same = any ? HTLower(text[at]) == HTLower(wanted) : text[at] == wanted;
        return same ? 1 : escaped(at) == static_cast<unsigned char>(wanted) ? 3 : 0;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const auto take = [](std::string_view bytes, std::size_t most) {
        return std::string(bytes.substr(0, std::min(bytes.find('\0'), most)));
    };
    std::string pattern = take(input.line(), 64);
    const bool many = pattern == "100 stars";
    const std::string piece = "*" + take(many ? input.line() : "", 64);
    std::string text = take(input.rest(), 1100);  // longer than what needs no scratch memory
    if (many) {
        pattern.clear();
        for (int i = 0; i < 100; ++i) {
            pattern += piece;
        }
        while (!text.empty() && text.size() < 4096) {
            text += text;
        }
    }
    const std::unique_ptr<HTPattern, void (*)(HTPattern *)> compiledPattern(
        HTPattern_new(pattern.c_str()), HTPattern_free);
    const GuardedText guarded(text);
    for (const Comparison comparison :
         {Comparison::Exact, Comparison::IgnoreCase, Comparison::Decoding}) {
        HTPool pool;
        const std::clock_t begin = std::clock();
        const char *const result =
            comparison == Comparison::Decoding
                ? HTPattern_url_match(compiledPattern.get(), nullptr, guarded.data(), &pool)
                : HTPattern_match(compiledPattern.get(), nullptr, guarded.data(),
                                  comparison == Comparison::Exact, &pool);
        require(std::clock() - begin < 2 * CLOCKS_PER_SEC, "no exponential time");
        require(result == nullptr || result == text, "a copy");
        Reference reference{compiled(pattern), text, comparison};
        require(many || (result != nullptr) == (!pattern.empty() && reference.matches(0, 0)),
                "same answer");
    }
    return 0;
}
