// A list of URLs as a sequence of lines. An object belongs to one thread: the main thread at
// start-up, the master thread for later runs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

// Reads a URL a line. Skips blank lines, lines whose first character that is not blank is "#", and
// a byte order mark of UTF-8 at the beginning; cuts blanks around the URL. Keeps kMaxUrl bytes of a
// line at most, however long it is.
class CAListLines {
public:
    // Bytes of a line, its line end not included.
    static constexpr std::size_t kMaxUrl = 4095;

    // Reads from where `file` stands; it stays the caller's.
    explicit CAListLines(FILE *file);

    // Advances to the next line with a URL or a fault; false at the end of the file, or when it
    // cannot be read on (then ferror() is true, and errno says why).
    bool next();

    // What is wrong with the line, as a static text such as "is longer than ..."; null: nothing.
    [[nodiscard]] const char *fault() const;
    // The URL of a line without a fault. Valid until the next call of next().
    [[nodiscard]] const char *url() const { return url_.data(); }
    // The number of the line, from 1.
    [[nodiscard]] std::int64_t number() const { return number_; }

private:
    bool readLine();
    [[nodiscard]] std::size_t readLength() const;
    void trim();

    FILE *const file_;
    std::int64_t number_ = 0;
    bool isTooLong_ = false;
    std::string_view url_;
    std::size_t kept_ = 0;  // bytes of the line in the array
    // Holds the mark, a URL, the line end, and a NUL. A line that fills it up to the NUL is too
    // long.
    std::array<char, kMaxUrl + 7> line_{};
};
