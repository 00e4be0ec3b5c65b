#include "base/CAoutput.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <new>
#include <string>

#include "htthread.h"

namespace {

// An output that could not be written whole. Never deleted, because a signal handler may read it.
struct Unwritten {
    std::string path;
    int error = 0;
    Unwritten *next = nullptr;            // noted before this one
    std::atomic<std::uint32_t> more = 0;  // copies besides this one; under the lock of the notes
    std::atomic<bool> isTold = false;
};

// The notes, the newest first: complete before they are linked, so that they are read without the
// lock, which belongs to those who add one.
struct Notes {
    PMutex mutex;
    std::atomic<Unwritten *> newest = nullptr;
    Unwritten *copies = nullptr;

    Unwritten *addLocked(std::string_view path, int error)
    {
        auto *const note = new Unwritten{
            .path = std::string(path), .error = error, .next = newest, .more = 0, .isTold = false};
        newest = note;
        return note;
    }
    [[nodiscard]] bool has(std::string_view path) const
    {
        const Unwritten *note = newest;
        while (note != nullptr && note->path != path) {
            note = note->next;
        }
        return note != nullptr;
    }
};
Notes &notes = *new Notes;  // never destroyed: worker threads may outlive main()

// A line of text in a fixed buffer; what does not fit is left out.
class Line {
public:
    Line &operator<<(std::string_view text)
    {
        const std::size_t length = std::min(text.size(), text_.size() - used_);
        text.copy(text_.data() + used_, length);
        used_ += length;
        return *this;
    }
    Line &operator<<(std::uint32_t number)
    {
        std::array<char, 10> digits{};
        const char *const end =
            std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return *this << std::string_view(digits.data(), end);
    }
    void writeTo(int descriptor) const
    {
        // Nobody can be told that this failed.
        [[maybe_unused]] const ssize_t count = write(descriptor, text_.data(), used_);
    }

private:
    std::array<char, PATH_MAX + 256> text_{};
    std::size_t used_ = 0;
};

void tell(const Unwritten &note)
{
    Line line;
    line << "refetchd: " << note.path << ": not written whole: " << HTStrerror(note.error);
    if (const std::uint32_t more = note.more; more > 0) {
        line << " (and " << more << (more == 1 ? " more copy)" : " more copies)");
    }
    line << "\n";
    line.writeTo(STDERR_FILENO);
}

}  // namespace

void CANoteUnwritten(std::string_view path, int error)
{
    const PMutexGuard guard(notes.mutex);
    if (!notes.has(path)) {
        notes.addLocked(path, error);
    }
}

void CANoteUnwrittenCopy(std::string_view path, int error)
{
    const PMutexGuard guard(notes.mutex);
    if (notes.copies == nullptr) {
        notes.copies = notes.addLocked(path, error);
    } else {
        ++notes.copies->more;
    }
}

void CATellUnwritten()
{
    for (Unwritten *note = notes.newest; note != nullptr; note = note->next) {
        if (!note->isTold.exchange(true)) {
            tell(*note);
        }
    }
}

namespace {

// The file behind a stream; deleted when the stream is closed.
struct Output {
    int descriptor;
    std::string path;
    CAOutputState own;  // followed when the caller has none
    CAOutputState *state;

    void fail(int error) const
    {
        int none = 0;
        if (state->error.compare_exchange_strong(none, error)) {
            CANoteUnwritten(path, error);
        }
    }
};

ssize_t writeOutput(void *cookie, const char *data, std::size_t size)
{
    auto *const output = static_cast<Output *>(cookie);
    output->state->written = true;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = write(output->descriptor, data + done, size - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            output->fail(count == 0 ? EIO : errno);
            break;
        }
    }
    return static_cast<ssize_t>(done);
}

int closeOutput(void *cookie)
{
    auto *const output = static_cast<Output *>(cookie);
    if (close(output->descriptor) != 0) {
        output->fail(errno);
    }
    delete output;
    return 0;
}

// True when no other open file has a lock. On a file system without locks that is assumed.
bool lockAlone(int descriptor)
{
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// Truncates the file unless another process shares it. Its own lock is shared from then on. Returns
// true if the file was truncated.
bool truncateAlone(int descriptor)
{
    const bool isAlone = lockAlone(descriptor);
    if (isAlone) {
        // Fails for a device, which needs no truncation.
        [[maybe_unused]] const int ignored = ftruncate(descriptor, 0);
    }
    flock(descriptor, LOCK_SH | LOCK_NB);
    return isAlone;
}

}  // namespace

bool CAIsShared(const char *path)
{
    const int descriptor = open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool isShared = !lockAlone(descriptor);
    close(descriptor);
    return isShared;
}

FILE *CAOpenOutput(const char *path, CAOutputState *state, CAOutputMode mode)
{
    const bool shares = mode == CAOutputMode::ShareAndAppend;
    const int flags = shares ? O_APPEND : O_TRUNC;
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666);
    if (descriptor < 0) {
        return nullptr;
    }
    auto *const output = new Output{.descriptor = descriptor, .path = path, .own = {}, .state = {}};
    output->state = state != nullptr ? state : &output->own;
    output->state->reset(shares && !truncateAlone(descriptor));
    FILE *const stream = fopencookie(output, "w", {nullptr, writeOutput, nullptr, closeOutput});
    if (stream == nullptr) {
        const int error = errno;
        close(descriptor);
        delete output;
        errno = error;
    }
    return stream;
}

std::string CAOutputTarget(const std::string &path)
{
    constexpr int kMostLinks = 40;  // the kernel's own limit
    std::string target = path;
    for (int i = 0; i < kMostLinks; ++i) {
        std::array<char, PATH_MAX> link{};
        const ssize_t length = readlink(target.c_str(), link.data(), link.size());
        if (length < 0) {
            break;  // not a link, or it does not exist yet
        }
        const bool isRelative = link[0] != '/';
        target.resize(isRelative ? target.rfind('/') + 1 : 0);
        target.append(link.data(), static_cast<std::size_t>(length));
    }
    return target;
}

bool CAIsReplaceable(const std::string &target)
{
    struct stat status {};
    return lstat(target.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}
