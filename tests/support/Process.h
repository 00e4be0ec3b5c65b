// One program run as a child, through env(1); what it writes is captured in memory. Used by one
// thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

using Millis = std::chrono::milliseconds;

class Process {
public:
    struct Result {
        int status = -1;         // exit status; -1 when a signal ended the program
        int signal = 0;          // that signal; SIGKILL when it was killed at the deadline
        long peakKilobytes = 0;  // highest resident memory
    };

    // Starts `words` as env(1) does: "--chdir=DIR" and NAME=value may come before the program.
    explicit Process(std::vector<std::string> words);
    ~Process();  // kills the child when it still runs
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    // Waits for the end; kills the child at the deadline.
    Result wait(Millis timeout);
    void signal(int number) const;
    // Waits until standard error holds `text`; false at the deadline, or at an end without.
    [[nodiscard]] bool waitForError(const std::string &text, Millis timeout);

    // What was written so far.
    [[nodiscard]] std::string out() const { return contents(out_); }
    [[nodiscard]] std::string err() const { return contents(err_); }

private:
    static std::string contents(int file);
    bool reap(int flags);

    pid_t pid_ = 0;  // 0 once the child has ended, -1 when none could be started
    const int out_;
    const int err_;
    Result result_;
};
