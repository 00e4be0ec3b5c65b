#include "RPoutput.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

std::string textOf(int error)
{
    return std::strerror(error);  // NOLINT(concurrency-mt-unsafe): there is no other thread
}

// Returns 0 or an error number.
int writeAll(int file, const std::string &text)
{
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = write(file, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return 0;
}

// The file behind links; `path` itself if there is none yet.
std::string targetOf(const std::string &path)
{
    const std::unique_ptr<char, decltype(&free)> target(realpath(path.c_str(), nullptr), &free);
    return target != nullptr ? target.get() : path;
}

int writeAside(const std::string &aside, const std::string &text)
{
    const int file =
        open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (file < 0) {
        return errno;
    }
    const int error = writeAll(file, text);
    const int closed = close(file) != 0 ? errno : 0;
    return error != 0 ? error : closed;
}

}  // namespace

std::string RPWrite(const std::string &path, const std::string &text)
{
    if (path.empty()) {
        const int error = writeAll(STDOUT_FILENO, text);
        return error == 0 ? "" : "cannot write to standard output: " + textOf(error);
    }
    const std::string target = targetOf(path);
    struct stat status {};
    if (stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return path + " is not a regular file";
    }
    const std::string aside = target + "." + std::to_string(getpid()) + ".tmp";
    int error = writeAside(aside, text);
    if (error == 0 && std::rename(aside.c_str(), target.c_str()) != 0) {
        error = errno;
    }
    if (error != 0 && error != EEXIST) {
        unlink(aside.c_str());
    }
    return error == 0 ? "" : "cannot write " + path + ": " + textOf(error);
}
