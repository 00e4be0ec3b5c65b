#include "Process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

namespace {

std::string contents(int file)
{
    std::string text;
    char block[65536];
    ssize_t got = 0;
    while ((got = pread(file, block, sizeof block, static_cast<off_t>(text.size()))) > 0) {
        text.append(block, static_cast<std::size_t>(got));
    }
    return text;
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
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", 0, 0);
    posix_spawn_file_actions_adddup2(&files, out_, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, err_, STDERR_FILENO);
    const int error = posix_spawnp(&pid_, env.c_str(), &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw std::runtime_error("cannot start env");
    }
}

Process::~Process()
{
    if (!ended_) {
        wait(Millis(0));
    }
    close(out_);
    close(err_);
}

// True once the child has ended; its result is kept then.
bool Process::reap(int flags)
{
    int status = 0;
    rusage usage{};
    if (!ended_ && wait4(pid_, &status, flags, &usage) == pid_) {
        ended_ = true;
        result_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        result_.peakKilobytes = usage.ru_maxrss;
    }
    return ended_;
}

bool Process::poll(Millis timeout, const std::function<bool()> &condition)
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

Process::Result Process::wait(Millis timeout)
{
    if (!poll(timeout, [this] { return reap(WNOHANG); })) {
        result_.timedOut = true;
        kill(pid_, SIGKILL);
        reap(0);
    }
    return result_;
}

void Process::signal(int number) const
{
    if (!ended_) {
        kill(pid_, number);
    }
}

bool Process::waitForError(const std::string &text, Millis timeout)
{
    const auto written = [&] { return err().find(text) != std::string::npos; };
    poll(timeout, [&] { return reap(WNOHANG) || written(); });
    return written();
}

std::string Process::out() const
{
    return contents(out_);
}

std::string Process::err() const
{
    return contents(err_);
}
