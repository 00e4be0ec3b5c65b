// One program run as a child, through env(1); what it writes is captured in memory. Used by one
// thread.
#pragma once

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"

using Millis = std::chrono::milliseconds;
using Words = std::vector<std::string>;

class Process {
public:
    // Starts `words` as env(1) does: "--chdir=DIR" and NAME=value may come before the program.
    explicit Process(Words words)
    {
        words.insert(words.begin(), "env");
        std::vector<char *> arguments;
        for (std::string &word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {  // only what is safe beside other threads
            dup2(out_, STDOUT_FILENO);
            dup2(err_, STDERR_FILENO);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~Process()  // kills the child when it still runs
    {
        wait(Millis(0));
        close(out_);
        close(err_);
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    // Waits for the end; kills the child at the deadline. Its exit status, or 128 and the number of
    // the signal that ended it.
    int wait(Millis timeout)
    {
        if (!poll(timeout, [this] { return reap(WNOHANG); })) {
            signal(SIGKILL);
            reap(0);
        }
        return status_;
    }
    void signal(int number) const
    {
        if (pid_ > 0) {
            kill(pid_, number);
        }
    }
    // Waits until standard error holds `text`; false at the deadline, or at an end without.
    [[nodiscard]] bool waitForError(const std::string &text, Millis timeout)
    {
        const auto written = [&] { return err().find(text) != std::string::npos; };
        poll(timeout, [&] { return reap(WNOHANG) || written(); });
        return written();
    }

    // The output so far. Opened again, because the child shares the offset of the descriptor.
    [[nodiscard]] std::string out() const { return contentsOf(path_ + std::to_string(out_)); }
    [[nodiscard]] std::string err() const { return contentsOf(path_ + std::to_string(err_)); }
    // Its highest resident memory, once it has ended.
    [[nodiscard]] long peakKilobytes() const { return usage_.ru_maxrss; }

private:
    // Waits until the condition holds; false at the deadline.
    template <typename Condition>
    static bool poll(Millis timeout, Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!condition()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(Millis(5));
        }
        return true;
    }
    // True once the child has ended.
    bool reap(int flags)
    {
        int status = 0;
        if (pid_ > 0 && wait4(pid_, &status, flags, &usage_) == pid_) {
            pid_ = 0;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return pid_ <= 0;
    }

    const std::string path_ = "/proc/self/fd/";
    pid_t pid_ = 0;  // 0 once the child has ended, -1 when none could be started
    const int out_ = memfd_create("stdout", MFD_CLOEXEC);
    const int err_ = memfd_create("stderr", MFD_CLOEXEC);
    int status_ = -1;
    rusage usage_{};
};
