// A configuration file as a sequence of directive lines. Used by the loaders on the main thread and
// on the master thread, one reader at a time each.
#pragma once

#include <array>
#include <cstdio>

#include "HTArgs.h"

class CAConfigObserver;

// Reads lines of at most 1024 characters (a longer one comes as several), turns backslashes into
// slashes, splits into words, and skips what is no directive: empty lines, comments, "{ ... }"
// blocks (they belong to the proxy and do not nest), and lines of one word, which are reported.
class CAConfigLines {
public:
    // Opens `file`, which must live as long; isOpen() tells whether that worked. `observer` (null:
    // nobody) hears of what is skipped.
    explicit CAConfigLines(const char *file, CAConfigObserver *observer = nullptr);
    ~CAConfigLines();
    CAConfigLines(const CAConfigLines &) = delete;
    CAConfigLines &operator=(const CAConfigLines &) = delete;

    [[nodiscard]] bool isOpen() const { return file_ != nullptr; }

    // Advances to the next directive line; false at the end of the file.
    bool next();

    // The directive's name, standardized. Of the current line, as all below.
    [[nodiscard]] const char *directive() const { return words_[0]; }
    // Its line in the file, from 1 on; the pieces of a line that is too long have one number.
    [[nodiscard]] int number() const { return number_; }
    // Number of words, the directive included; at least 2.
    [[nodiscard]] int count() const { return count_; }
    // Word `index` (0 is the directive); an empty text behind the last. The caller may change it.
    [[nodiscard]] char *word(int index) const { return words_[static_cast<std::size_t>(index)]; }
    // True when nothing closes a quote in it, which then is an ordinary character.
    [[nodiscard]] bool hasOpenQuote() const { return openQuote_; }
    // The line as it stands in the file, from the first argument on, line feed included. The caller
    // may change it.
    [[nodiscard]] char *rest();

private:
    static constexpr std::size_t kLineSize = 1024 + 1;

    bool isDirective();
    void countLine();

    const char *const name_;
    CAConfigObserver *const observer_;
    FILE *const file_;
    bool inBlock_ = false;
    int blockNumber_ = 0;  // of the line where the block begins
    int count_ = 0;
    int number_ = 0;
    bool openQuote_ = false;
    bool lineEnded_ = true;  // what was read last ended with its line
    std::array<char *, kMaxArgs> words_{};
    std::array<char, kLineSize> raw_{};
    std::array<char, kLineSize> copy_{};
};
