// Writes a line of JSON into memory of the caller.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

// The number of bytes that quote() below writes for `text`, without the quotes.
[[nodiscard]] std::size_t CAQuotedLength(std::string_view text);

// The start of `text` for which that number is at most `most`, cut neither within a character of
// UTF-8 nor within an escape such as "%20".
[[nodiscard]] std::string_view CACut(std::string_view text, std::size_t most);

// Writes times as CAJsonWriter shows them. It keeps the second of the last one, because most lines
// of a log begin in the same second as the line before. One thread.
class CATimeText {
public:
    // The time, given in milliseconds since the epoch, in UTC, such as "2026-11-21T19:45:00.123Z".
    // Valid until the next call.
    std::string_view of(std::int64_t milliseconds);

private:
    static constexpr std::size_t kMillis = sizeof("2026-11-21T19:45:00.") - 1;

    void setSecond(std::int64_t second);

    std::int64_t second_ = INT64_MIN;  // no time lies in that one
    std::array<char, kMillis + 4> text_{};
};

// Writes one JSON object from `at` on. Quoted texts are cut off at `end`; kTail more bytes behind
// `end` leave room for everything else. One thread.
class CAJsonWriter {
public:
    static constexpr std::size_t kTail = 1024;

    CAJsonWriter(char *at, char *end) : at_(at), end_(end) {}

    [[nodiscard]] char *at() const { return at_; }

    // Writes `text` as it is: keys, punctuation, and texts that need no escapes.
    CAJsonWriter &operator<<(std::string_view text)
    {
        at_ = std::copy(text.begin(), text.end(), at_);
        return *this;
    }
    CAJsonWriter &operator<<(std::int64_t number)
    {
        at_ = std::to_chars(at_, at_ + kNumber, number).ptr;
        return *this;
    }
    // Writes `text` in quotes, escaped; one that is too long is cut off behind a whole character.
    void quote(std::string_view text);

private:
    static constexpr std::ptrdiff_t kNumber = 20;  // characters of the longest number, with sign

    std::size_t putCharacter(std::string_view text);

    char *at_;
    char *const end_;
};
