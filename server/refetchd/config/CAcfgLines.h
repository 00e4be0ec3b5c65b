// A configuration file as a sequence of directive lines. An object belongs to one thread: the main
// thread at start-up, the master thread for later runs.
#pragma once

#include <array>
#include <cstdio>

#include "HTArgs.h"

class CAConfigObserver;

// Reads lines of at most 1024 characters (a longer line is read as several), turns backslashes into
// slashes (so parse_args() sees no escapes), splits the lines into words, and skips all that is no
// directive: empty lines, comments, "{ ... }" blocks (they are the proxy's, and do not nest), and
// lines of one word, which are traced.
class CAConfigLines {
public:
    // Opens `file`; isOpen() shows whether that worked. The name must live as long as the object.
    // `observer`, unless null, is called for what is skipped.
    explicit CAConfigLines(const char *file, CAConfigObserver *observer = nullptr);
    ~CAConfigLines();
    CAConfigLines(const CAConfigLines &) = delete;
    CAConfigLines &operator=(const CAConfigLines &) = delete;

    [[nodiscard]] bool isOpen() const { return file_ != nullptr; }

    // Advances to the next directive line; false at the end of the file.
    bool next();

    // The directive's name, standardized (HTString.h). This and all below are about the current
    // line.
    [[nodiscard]] const char *directive() const { return words_[0]; }
    // The number of the line in the file, from 1; all pieces of a long line have the same.
    [[nodiscard]] int number() const { return number_; }
    // Number of words, the directive included; at least 2.
    [[nodiscard]] int count() const { return count_; }
    // Word `index`, below kMaxArgs (0 is the directive); an empty text behind the last one. The
    // caller may change it in place.
    [[nodiscard]] char *word(int index) const { return words_[static_cast<std::size_t>(index)]; }
    // True when a quote in the line is not closed; it counts as an ordinary character.
    [[nodiscard]] bool hasOpenQuote() const { return openQuote_; }
    // The unprocessed line from the first argument on, with its line feed. The caller may change it
    // in place.
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
    bool lineEnded_ = true;  // the last read reached the end of its line
    std::array<char *, kMaxArgs> words_{};
    std::array<char, kLineSize> raw_{};
    std::array<char, kLineSize> copy_{};
};
