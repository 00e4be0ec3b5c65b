// One line of JSON, written into memory that the caller has.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

// Writes one JSON object into memory that has room for kTail bytes behind `end`, where no quoted
// text goes.
class CAJsonWriter {
public:
    static constexpr std::size_t kTail = 1024;

    CAJsonWriter(char *at, char *end) : at_(at), end_(end) {}

    [[nodiscard]] char *at() const { return at_; }

    // As it stands: keys, marks, and texts that need no quoting.
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
    // With its quotes; a text that is too long is cut off behind a whole character.
    void quote(std::string_view text);
    // Milliseconds since the epoch, such as "2026-11-21T19:45:00.123Z", with its quotes.
    void time(std::int64_t milliseconds);

private:
    static constexpr std::ptrdiff_t kNumber = 20;  // longest, with its sign

    template <int Count, typename Number>
    void digits(Number number, char behind);
    std::size_t putCharacter(std::string_view text);

    char *at_;
    char *const end_;
};
