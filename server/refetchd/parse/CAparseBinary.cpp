#include "parse/CAparseBinary.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "HTFile.h"
#include "HTMemory.h"
#include "HTString.h"
#include "base/CAoutput.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "htthread.h"
#include "report/CAresults.h"
#include "url/CAURL.h"

namespace {

constexpr mode_t kDirectoryMode = 0775;

// True when the ".." segments of `path` lead above the directory where it begins.
bool climbsOut(std::string_view path)
{
    int depth = 0;
    while (!path.empty()) {
        const std::string_view segment = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(segment.size() + 1, path.size()));
        if (segment == "..") {
            --depth;
        } else if (!segment.empty() && segment != ".") {
            ++depth;
        }
        if (depth < 0) {
            return true;
        }
    }
    return false;
}

// Guards the names in the save directory: locked while the directories of a file are created and
// the file is opened, and while it is renamed or removed. Otherwise turnIntoDirectory() could lose
// a body of another thread: for a moment the page has a temporary name, which may be that of
// another page, and its own name is free. Never destroyed, because a worker thread may outlive
// main().
PMutex &namesMutex()
{
    static PMutex *const mutex = new PMutex;
    return *mutex;
}

// Creates the directory `dir` where a page was saved before under this name, and renames that page.
// The new names are odd, because `dir` has no final "/": a page "h/a" is renamed to "h/.tmp" while
// the directory is created, and then to "h/aindex.html", which is beside the directory.
void turnIntoDirectory(const char *dir, HTPool *pool)
{
    const std::size_t length = std::strlen(dir);
    const HTPoolScope scope(pool);
    char *const temporary = static_cast<char *>(pool->alloc(length + sizeof(".tmp")));
    char *const page = static_cast<char *>(pool->alloc(length + sizeof("index.html")));
    if (temporary == nullptr || page == nullptr) {
        return;
    }
    std::snprintf(temporary, length + sizeof(".tmp"), "%.*s.tmp", static_cast<int>(length) - 1,
                  dir);
    std::snprintf(page, length + sizeof("index.html"), "%sindex.html", dir);
    CATrace(
        "SL.......... moving \"%s\" to \"%s\"\nand......... creating dir \"%s\"\nand......... "
        "moving \"%s\" to \"%s\"\n",
        dir, temporary, dir, temporary, page);
    if (std::rename(dir, temporary) == 0) {
        HTMkdir(dir, kDirectoryMode);
        std::rename(temporary, page);
    }
}

// Shortens `dir` to the deepest directory that exists, or to the part before its first "/" if none
// does. A regular file found there is turned into a directory if it is below the save directory,
// that is, if its name is longer than `ours`, the length of the save directory's name.
void cutToExisting(char *dir, std::size_t ours, HTPool *pool)
{
    const char *const first = std::strchr(dir, '/');
    for (;;) {
        CATrace("Stat()ing... \"%s\".\n", dir);
        struct stat status {};
        if (stat(dir, &status) == 0) {
            if (!S_ISREG(status.st_mode)) {
                CATrace("Cache....... dir \"%s\" already exists\n", dir);
            } else if (std::strlen(dir) > ours) {
                turnIntoDirectory(dir, pool);
            }
            return;
        }
        char *const slash = std::strrchr(dir, '/');
        if (slash == nullptr) {
            return;
        }
        *slash = '\0';
        if (slash == first) {
            return;
        }
    }
}

bool makeDirectory(const char *dir)
{
    CATrace("Cache....... creating cache dir \"%s\"\n", dir);
    if (HTMkdir(dir, kDirectoryMode) == 0) {
        return true;
    }
    CATrace("Cache....... can't create dir \"%s\"\n", dir);
    return false;
}

// Creates the missing directories of `place`, which ends in "/". On entry `dir` is the result of
// cutToExisting(), in a buffer with room for all of `place`; it is overwritten. 1, or 0 when a
// directory could not be created.
int createBeyond(char *dir, const char *place)
{
    // Of a relative path even the first name may be missing.
    if (*dir != '\0' && access(dir, F_OK) != 0 && !makeDirectory(dir)) {
        return 0;
    }
    for (std::size_t at = std::strlen(dir);;) {
        const std::size_t end = at + 1 + std::strcspn(place + at + 1, "/");
        std::memcpy(dir + at, place + at, end - at);
        dir[end] = '\0';
        if (place[end] == '\0') {
            return 1;
        }
        if (!makeDirectory(dir)) {
            return 0;
        }
        at = end;
    }
}

// Files aside are locked (flock) by the agent that writes them, so that others can tell them from
// those that a killed agent has left behind. On a file system without such locks all pass for used.

// True when `name` is still the name of the open file.
bool isNameOf(const std::string &name, int file)
{
    struct stat ours {};
    struct stat there {};
    return fstat(file, &ours) == 0 && lstat(name.c_str(), &there) == 0 &&
           ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
}

// Creates the file `name` and locks it. Returns its descriptor; -1 with errno set on failure, which
// is EEXIST when the name is taken.
int createAside(const std::string &name)
{
    const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (file < 0) {
        return -1;
    }
    // Before the lock was taken, another agent may have removed the file as left behind.
    if ((flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) && isNameOf(name, file)) {
        return file;
    }
    close(file);
    errno = EEXIST;
    return -1;
}

// Removes the file `name` if nobody writes it. Returns true if that was so.
bool removeLeftBehind(const std::string &name)
{
    const int file = open(name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    const bool isLeft =
        flock(file, LOCK_EX | LOCK_NB) == 0 && isNameOf(name, file) && unlink(name.c_str()) == 0;
    close(file);
    return isLeft;
}

// Creates a file aside for `target` and stores its name in `*aside`. The numbers begin at 0 in each
// directory, so that those of a killed agent are soon used again. Returns its descriptor; -1 with
// errno set on failure.
int openAside(const std::string &target, std::string *aside)
{
    constexpr int kTries = 256;
    constexpr std::string_view kPrefix = ".refetchd\x7F";
    const std::string start = target.substr(0, target.rfind('/') + 1).append(kPrefix);
    int file = -1;
    errno = EEXIST;
    for (int i = 0; file < 0 && errno == EEXIST && i < kTries; ++i) {
        *aside = start + std::to_string(i);
        file = createAside(*aside);
        if (file < 0 && errno == EEXIST) {
            file = removeLeftBehind(*aside) ? createAside(*aside) : -1;
            errno = EEXIST;
        }
    }
    return file;
}

// Returns an unbuffered stream for the descriptor, which it takes over, even when it fails (null).
// Without a buffer the write itself fails when the disk is full.
FILE *streamOf(int descriptor)
{
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
    FILE *const file = fdopen(descriptor, "wb");
    if (file == nullptr) {
        close(descriptor);
    } else {
        std::setvbuf(file, nullptr, _IONBF, 0);
    }
    return file;
}

// Gives the new copy the owner, as far as that is allowed, and the mode of the earlier one.
void takeAfter(int file, const struct stat &earlier)
{
    [[maybe_unused]] const int ignored = fchown(file, earlier.st_uid, earlier.st_gid);
    fchmod(file, earlier.st_mode & 0777);
}

// Notes a copy that could not be written if anybody wants to know what a run did; not if `error` is
// 0 or only its name is the reason: a site may choose names that are too long or that of a
// directory.
void noteUnwritten(const char *name, int error)
{
    if (results.observes() && error != 0 && error != ENAMETOOLONG && error != EISDIR) {
        CANoteUnwrittenCopy(name, error);
    }
}

}  // namespace

CAParseBinary::CAParseBinary(CAURL *url) : CAParser(url)
{
    if (ac.saveFiles != 0 && ac.saveRoot != nullptr) {
        openFile();
    }
}

void CAParseBinary::openFile()
{
    const std::string_view host = url_->host();
    const std::size_t size =
        std::strlen(ac.saveRoot) + host.size() + std::strlen(url_->path()) + sizeof("/index.html");
    fileName_ = static_cast<char *>(std::malloc(size));
    if (fileName_ == nullptr) {
        HTOutOfMemory("server/refetchd/CAparse", "CAParseBinary", __LINE__, size);
        return;
    }
    const char *const page = std::string_view(url_->path()).ends_with('/') ? "index.html" : "";
    std::snprintf(fileName_, size, "%s%.*s/%s%s", ac.saveRoot, CALength(host), host.data(),
                  url_->path(), page);
    const bool inside = host != ".." && !climbsOut(url_->path());
    const int before = errno;
    int error = 0;
    if (inside) {
        const PMutexGuard guard(namesMutex());
        create_place();
        file_ = openPlace();
        error = file_ == nullptr ? errno : 0;
    }
    errno = error != 0 ? error : before;
    noteUnwritten(fileName_, error);
    CATrace("Creating.... file \"%s\" %s.\n", fileName_, file_ != nullptr ? "SUCCEEDED" : "FAILED");
}

namespace {

// True when only the directory is the reason that no file aside could be created in it.
bool isDirectoryClosed(int error)
{
    return error == EACCES || error == EPERM || error == EROFS;
}

}  // namespace

// Opens the file that is written; null with errno set on failure. What has the name already must be
// writable, as if it were written itself; a pipe that nobody reads is not waited for.
FILE *CAParseBinary::openPlace()
{
    struct stat earlier {};
    const int there = open(fileName_, O_WRONLY | O_CLOEXEC | O_NONBLOCK);
    if (there < 0 && errno != ENOENT) {
        return nullptr;
    }
    if (there >= 0 && (fstat(there, &earlier) != 0 || !S_ISREG(earlier.st_mode))) {
        return streamOf(there);
    }
    target_ = CAOutputTarget(fileName_);
    const int file = openAside(target_, &aside_);
    if (there < 0) {
        return file < 0 ? nullptr : streamOf(file);
    }
    return openAgain(there, earlier, file);
}

// Opens the file that replaces an earlier copy. Takes over the descriptors of that copy and of the
// file aside, which is -1, with errno set, when there is none.
FILE *CAParseBinary::openAgain(int there, const struct stat &earlier, int file)
{
    if (file < 0 && isDirectoryClosed(errno) && ftruncate(there, 0) == 0) {
        aside_.clear();
        return streamOf(there);
    }
    const int error = errno;
    close(there);
    errno = error;
    if (file < 0) {
        return nullptr;
    }
    takeAfter(file, earlier);
    return streamOf(file);
}

// Makes sure that the directory of the file exists. 1, or 0 when it could not be created.
int CAParseBinary::create_place()
{
    const char *const slash = std::strrchr(fileName_, '/');
    if (slash == nullptr) {
        return 0;
    }
    HTPool &pool = threadContext_->pool;
    const HTPoolScope scope(&pool);
    const auto length = static_cast<std::size_t>(slash + 1 - fileName_);
    const char *const place = pool.copy(fileName_, length);
    char *const dir = pool.copy(fileName_, length);
    if (place == nullptr || dir == nullptr) {
        return 0;
    }
    cutToExisting(dir, std::strlen(ac.saveRoot), &pool);
    CATrace("Cache....... directory \"%s\" exists, we must get to \"%s\".\n", dir, place);
    if (std::strcmp(dir, place) == 0) {
        CATrace("Cache....... we're there!\n");
        return 1;
    }
    return createBeyond(dir, place);
}

std::int32_t CAParseBinary::consume(char *data, std::int32_t length, std::int32_t * /*finished*/,
                                    std::int32_t * /*closeConnection*/)
{
    if (file_ == nullptr) {
        CATrace("CAParseBin.. doing nothing.\n");
        return length;
    }
    const auto size = static_cast<std::size_t>(length);
    if (std::fwrite(data, 1, size, file_) == size) {
        CATrace("CAParseBin.. wrote %u bytes to \"%s\".\n", static_cast<unsigned>(length),
                fileName_);
        bytesWritten_ += size;
    } else {
        noteUnwritten(fileName_, errno);
        CATrace("CAParseBin.. write of %u bytes to \"%s\" failed.\n", static_cast<unsigned>(length),
                fileName_);
        dropFile();
    }
    return length;
}

// Removes the incomplete file: part of a body is worse than no copy, or the one before.
void CAParseBinary::dropFile()
{
    const PMutexGuard guard(namesMutex());
    unlink(aside_.empty() ? fileName_ : aside_.c_str());
    std::fclose(file_);
    file_ = nullptr;
    std::free(fileName_);
    fileName_ = nullptr;
}

namespace {

// The error number of a write that seemed to succeed, or 0: a network file system reports some
// failures only when a descriptor is closed.
int lateError(FILE *file)
{
    const int twin = dup(fileno(file));
    return twin >= 0 && close(twin) != 0 ? errno : 0;
}

}  // namespace

// Renames the file aside, if it is whole, so that it replaces the earlier copy; otherwise removes
// it. It stays open, and so locked, until its name is gone.
void CAParseBinary::finishFile()
{
    if (file_ == nullptr) {
        return;
    }
    int error = !aside_.empty() && isWhole_ ? lateError(file_) : 0;
    {
        const PMutexGuard guard(namesMutex());
        if (!aside_.empty() && error == 0) {
            error = putInPlace();
        }
        if (!aside_.empty() && (error != 0 || !isWhole_)) {
            unlink(aside_.c_str());
        }
        std::fclose(file_);
    }
    if (error != 0) {
        noteUnwritten(fileName_, error);
        CATrace("CAParseBin.. could not rename to \"%s\"; errno=%d.\n", fileName_, error);
    }
}

// Returns 0, or an error number.
int CAParseBinary::putInPlace()
{
    if (!isWhole_) {
        if (bytesWritten_ == 0) {
            renameat2(AT_FDCWD, aside_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
        }
        return 0;
    }
    if (std::rename(aside_.c_str(), target_.c_str()) == 0) {
        return 0;
    }
    // A directory has taken the name meanwhile.
    const bool isMoved = errno == EISDIR && bytesWritten_ > 0 &&
                         std::rename(aside_.c_str(), (target_ + "index.html").c_str()) == 0;
    return isMoved ? 0 : errno;
}

CAParseBinary::~CAParseBinary()
{
    if (fileName_ != nullptr) {
        CATrace("Closing..... binary parser for file \"%s\". Wrote %" PRIu64 " bytes.\n", fileName_,
                bytesWritten_);
        finishFile();
    } else {
        CATrace("CAParseBin.. no file to close.\n");
    }
    std::free(fileName_);
    if (sink_ != nullptr) {
        CATrace("CAParseBin.. deleting its sink.\n");
        addSink(nullptr);
    }
}

CAParseBinary *CANewCopy(CAURL *url)
{
    if (ac.saveFiles == 0 || ac.saveRoot == nullptr) {
        return nullptr;
    }
    CATrace("Adding...... new binary-parser for URL \"%s\".\n", url->stringitize());
    return new CAParseBinary(url);
}
