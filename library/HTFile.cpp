#include "HTFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "HTString.h"

char *HTMakeAbsolutePath(const char *name)
{
    if (*name == '/') {
        return strdup(name);
    }
    char *path = getcwd(nullptr, 0);
    if (path != nullptr && std::strcmp(path, "/") != 0) {
        HTSACat(&path, "/");
    }
    return path == nullptr ? nullptr : HTSACat(&path, name);
}

FILE *HTOpenForReading(const char *name)
{
    FILE *const file = std::fopen(name, "re");
    if (file == nullptr) {
        return nullptr;
    }
    // The system lets a directory be opened for reading; only reading it fails.
    struct stat status {};
    if (fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode)) {
        std::fclose(file);
        errno = EISDIR;
        return nullptr;
    }
    return file;
}

int HTMkdir(const char *name, mode_t mode)
{
    if (mkdir(name, mode) == 0) {
        return 0;
    }
    const int error = errno;
    struct stat status {};
    if (error == EEXIST && stat(name, &status) == 0 && S_ISDIR(status.st_mode)) {
        return 0;
    }
    errno = error;
    return -1;
}
