// Reads the lines of a log, which may be compressed. One thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "RPentry.h"

class RPLog {
public:
    // Lines of this length or more are left out; the agent writes shorter ones only.
    static constexpr std::size_t kMaxLine = 65536;

    RPLog() = default;
    // Closes the log, and ends a program that decompresses it.
    ~RPLog();
    RPLog(const RPLog &) = delete;
    RPLog &operator=(const RPLog &) = delete;

    // Opens a file; "-" is standard input. A file whose first bytes are those of gzip, xz, bzip2 or
    // zstd is decompressed by the program of that name. Returns false if it cannot be opened; then
    // error() says why.
    [[nodiscard]] bool open(const std::string &path);

    // Reads the next line, without its line end. False at the end of the log, or when it cannot be
    // read any further; error() is empty only at the end. The line is valid until the next call,
    // and RPEntryReader::kPadding readable bytes follow it.
    [[nodiscard]] bool next(std::string_view *line);

    // Lines that were left out because of their length.
    [[nodiscard]] std::int64_t longLines() const { return longLines_; }
    [[nodiscard]] const std::string &error() const { return error_; }

private:
    bool fail(int error);
    [[nodiscard]] bool decompress(const char *tool);
    [[nodiscard]] bool fill();
    [[nodiscard]] bool nextPiece(std::string_view *piece, bool *ends);
    void finish();

    int file_ = -1;
    pid_t tool_ = 0;  // 0: none
    const char *toolName_ = "";
    std::string error_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;  // of the bytes that were not handed out
    std::size_t end_ = 0;
    bool ended_ = false;
    std::int64_t longLines_ = 0;
};
