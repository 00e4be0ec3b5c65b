#include "Process.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace {

// Waits until the condition holds; false at the deadline.
template <typename Condition>
bool poll(Millis timeout, Condition condition)
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

}  // namespace

Process::Process(std::vector<std::string> words)
    : out_(memfd_create("stdout", MFD_CLOEXEC)), err_(memfd_create("stderr", MFD_CLOEXEC))
{
    std::string env = "env";
    std::vector<char *> arguments = {env.data()};
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {  // only what is safe beside other threads
        dup2(out_, STDOUT_FILENO);
        dup2(err_, STDERR_FILENO);
        execvp(env.c_str(), arguments.data());
        _exit(127);
    }
}

Process::~Process()
{
    wait(Millis(0));
    close(out_);
    close(err_);
}

// True once the child has ended; its result is kept then.
bool Process::reap(int flags)
{
    int status = 0;
    rusage usage{};
    if (pid_ > 0 && wait4(pid_, &status, flags, &usage) == pid_) {
        pid_ = 0;
        result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        result_.peakKilobytes = usage.ru_maxrss;
    }
    return pid_ <= 0;
}

Process::Result Process::wait(Millis timeout)
{
    if (!poll(timeout, [this] { return reap(WNOHANG); })) {
        signal(SIGKILL);
        reap(0);
    }
    return result_;
}

void Process::signal(int number) const
{
    if (pid_ > 0) {
        kill(pid_, number);
    }
}

bool Process::waitForError(const std::string &text, Millis timeout)
{
    const auto written = [&] { return err().find(text) != std::string::npos; };
    poll(timeout, [&] { return reap(WNOHANG) || written(); });
    return written();
}

// Opened anew, so that the place where the child writes does not move.
std::string Process::contents(int file)
{
    std::ostringstream text;
    text << std::ifstream("/proc/self/fd/" + std::to_string(file), std::ios::binary).rdbuf();
    return text.str();
}
