#include "RPlog.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {

struct ToolRow {
    std::string_view magic;
    const char *tool;
};
constexpr std::array<ToolRow, 4> kTools = {{
    {"\x1f\x8b", "gzip"},
    {"\xfd"
     "7zXZ",
     "xz"},
    {"BZh", "bzip2"},
    {"\x28\xb5\x2f\xfd", "zstd"},
}};

// Bytes that are read before a tool is chosen by them.
constexpr std::size_t kStart = 8;

// Starts `tool`, which decompresses from descriptor `in` to `out`. Returns 0 or an error number.
int spawn(const char *tool, int in, int out, pid_t *child)
{
    posix_spawn_file_actions_t actions;
    if (const int error = posix_spawn_file_actions_init(&actions); error != 0) {
        return error;
    }
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::string name(tool);
    std::string option("-dc");
    const std::array<char *, 3> arguments = {name.data(), option.data(), nullptr};
    const int error = posix_spawnp(child, tool, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

}  // namespace

RPLog::~RPLog()
{
    if (file_ >= 0) {
        close(file_);
    }
    if (tool_ > 0) {
        kill(tool_, SIGTERM);
        waitpid(tool_, nullptr, 0);
    }
}

bool RPLog::fail(int error)
{
    error_ = std::strerror(error);  // NOLINT(concurrency-mt-unsafe): there is no other thread
    ended_ = true;
    return false;
}

bool RPLog::open(const std::string &path)
{
    buffer_.resize(kMaxLine + RPEntryReader::kPadding);
    file_ = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                        : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (file_ < 0) {
        return fail(errno);
    }
    // A pipe may give fewer at once.
    while (end_ < kStart && fill()) {
    }
    const std::string_view start(buffer_.data(), end_);
    for (const ToolRow &row : kTools) {
        if (start.starts_with(row.magic)) {
            return decompress(row.tool);
        }
    }
    return error_.empty();
}

bool RPLog::decompress(const char *tool)
{
    if (lseek(file_, 0, SEEK_SET) != 0) {
        error_ = "a compressed log must be a file, not a pipe";
        return false;
    }
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return fail(errno);
    }
    const int error = spawn(tool, file_, ends[1], &tool_);
    close(ends[1]);
    close(file_);
    file_ = ends[0];
    begin_ = end_ = 0;
    ended_ = false;
    toolName_ = tool;
    if (error != 0) {
        tool_ = 0;
        fail(error);
        error_ = std::string(tool) + " is needed to read it: " + error_;
    }
    return error == 0;
}

// Reads more bytes; false when there are no more. The buffer has room.
bool RPLog::fill()
{
    if (ended_) {
        return false;
    }
    const std::size_t room = kMaxLine - end_;
    const ssize_t count = read(file_, buffer_.data() + end_, room);
    if (count < 0 && errno != EINTR) {
        return fail(errno);
    }
    if (count == 0) {
        ended_ = true;
        finish();
    }
    end_ += count > 0 ? static_cast<std::size_t>(count) : 0;
    return count != 0;
}

// Sees how the program that decompresses has ended.
void RPLog::finish()
{
    int status = 0;
    if (tool_ > 0 && (waitpid(tool_, &status, 0) != tool_ || status != 0)) {
        error_ = std::string(toolName_) + " could not read it to the end";
    }
    tool_ = 0;
}

// Hands out the bytes up to the next line feed, the end of the log, or as many as the buffer holds;
// `ends` says that a line ends with them. False at the end of the log.
bool RPLog::nextPiece(std::string_view *piece, bool *ends)
{
    std::size_t searched = 0;
    while (true) {
        char *const start = buffer_.data() + begin_;
        std::size_t length = end_ - begin_;
        const void *const feed = std::memchr(start + searched, '\n', length - searched);
        if (feed != nullptr) {
            length = static_cast<std::size_t>(static_cast<const char *>(feed) - start);
        }
        if (feed != nullptr || ended_ || length == kMaxLine) {
            *ends = feed != nullptr || ended_;
            *piece = std::string_view(start, length);
            begin_ += length + (feed != nullptr ? 1 : 0);
            return feed != nullptr || length > 0;
        }
        std::memmove(buffer_.data(), start, length);
        begin_ = 0;
        end_ = searched = length;
        static_cast<void>(fill());
    }
}

bool RPLog::next(std::string_view *line)
{
    bool isRest = false;  // of a line that is too long
    bool ends = false;
    while (nextPiece(line, &ends)) {
        if (ends && !isRest) {
            return true;
        }
        longLines_ += ends ? 1 : 0;
        isRest = !ends;
    }
    longLines_ += isRest ? 1 : 0;
    return false;
}
