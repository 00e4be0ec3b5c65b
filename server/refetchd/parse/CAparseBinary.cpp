#include "parse/CAparseBinary.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "HTFile.h"
#include "HTMemory.h"
#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "htthread.h"
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
// the file is opened, and while a file is removed. Otherwise turnIntoDirectory() could lose a body
// of another thread: for a moment the page has a temporary name, which may be that of another page,
// and its own name is free. Never destroyed, because a worker thread may outlive main().
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

// Opens a file as fopen() with "wb" does, but fails for a pipe that nobody reads instead of waiting
// for a reader.
FILE *openToWrite(const char *name)
{
    const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) {
        return nullptr;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    FILE *const file = fdopen(fd, "wb");
    if (file == nullptr) {
        close(fd);
    }
    return file;
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
    if (inside) {
        const PMutexGuard guard(namesMutex());
        create_place();
        file_ = openToWrite(fileName_);
    }
    if (file_ != nullptr) {
        std::setvbuf(file_, nullptr, _IONBF,
                     0);  // unbuffered, so that the write itself fails when the disk is full
    }
    CATrace("Creating.... file \"%s\" %s.\n", fileName_, file_ != nullptr ? "SUCCEEDED" : "FAILED");
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
        CATrace("CAParseBin.. write of %u bytes to \"%s\" failed.\n", static_cast<unsigned>(length),
                fileName_);
        dropFile();
    }
    return length;
}

// Removes the incomplete file: part of a body is worse than no copy.
void CAParseBinary::dropFile()
{
    removeFile();
    std::fclose(file_);
    file_ = nullptr;
    std::free(fileName_);
    fileName_ = nullptr;
}

// Removes the file, under its new name if another thread has renamed it in turnIntoDirectory().
void CAParseBinary::removeFile()
{
    const PMutexGuard guard(namesMutex());
    if (unlink(fileName_) == 0) {
        return;
    }
    const std::string moved = std::string(fileName_) + "index.html";
    struct stat ours {};
    struct stat there {};
    if (fstat(fileno(file_), &ours) == 0 && stat(moved.c_str(), &there) == 0 &&
        ours.st_ino == there.st_ino && ours.st_dev == there.st_dev) {
        unlink(moved.c_str());
    }
}

CAParseBinary::~CAParseBinary()
{
    if (fileName_ != nullptr) {
        CATrace("Closing..... binary parser for file \"%s\". Wrote %" PRIu64 " bytes.\n", fileName_,
                bytesWritten_);
    } else {
        CATrace("CAParseBin.. no file to close.\n");
    }
    if (file_ != nullptr) {
        std::fclose(file_);
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
