// One program run as a child, through env(1); what it writes is captured in memory. Used by one
// thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

using Millis = std::chrono::milliseconds;

class Process {
public:
    struct Result {
        int status = -1;         // exit status; -1 when a signal ended the program
        int signal = 0;          // that signal
        bool timedOut = false;   // it was killed at the deadline
        long peakKilobytes = 0;  // highest resident memory
    };

    // Starts `words` as env(1) does: "--chdir=DIR" and NAME=value words may come before the
    // program.
    explicit Process(std::vector<std::string> words);
    // Kills the child when it still runs.
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    // Waits for the end; kills the child at the deadline.
    Result wait(Millis timeout);
    void signal(int number) const;
    // Waits until standard error holds `text`; false at the deadline, or when the child ended
    // without.
    [[nodiscard]] bool waitForError(const std::string &text, Millis timeout);

    // What was written so far.
    [[nodiscard]] std::string out() const;
    [[nodiscard]] std::string err() const;

private:
    bool reap(int flags);
    bool poll(Millis timeout, const std::function<bool()> &condition);

    pid_t pid_ = -1;
    const int out_;
    const int err_;
    bool ended_ = false;
    Result result_;
};
