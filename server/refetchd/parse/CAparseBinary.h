// Saves the body of one response in a file below the save directory.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "parse/CAparse.h"

// The path of the file follows the URL: save directory, host, "/", path with query, and
// "index.html" if that ends in "/". Host and path are used unchanged; but if they lead out of the
// directory of the host, no file is opened. Without an open file the body is dropped.
//
// The body is written to a file aside, in the same directory, which takes the place of the earlier
// copy when the parser is deleted; so a copy is always one whole body. When the response has broken
// off (breakOff()), or the disk is full, the earlier copy stays as it was; if there is none, a
// response of which nothing was written leaves an empty file, and any other no file. Symbolic links
// are followed to the file that they name. Pipes and devices are written directly, and so is an
// earlier copy in a directory where the agent may not create files: its text is lost at once.
//
// Parsers on different threads, and of several agents, may save at the same time, also to one name:
// the last body that was whole stays. Names are changed under a lock of this module; the
// directories are created, and traced, under that lock. When a directory is needed in place of this
// file (see turnIntoDirectory()) while it is being written, it gets the name that an earlier copy
// would get.
//
// A file aside has a name that no URL leads to: ".refetchd", DEL and a number. One that a killed
// agent has left behind is removed when its name is used again: in each directory the numbers begin
// at 0, and the lowest that is not in use is taken.
class CAParseBinary : public CAParser {
public:
    explicit CAParseBinary(CAURL *url);
    ~CAParseBinary() override;  // puts the copy in its place
    CAParseBinary(const CAParseBinary &) = delete;
    CAParseBinary &operator=(const CAParseBinary &) = delete;

    // Writes the block; if that fails, removes the file and drops the rest of the body. Takes
    // everything and leaves both flags as they are; they may be null.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

    void breakOff() override { isWhole_ = false; }

private:
    void openFile();
    int create_place();
    [[nodiscard]] FILE *openPlace();
    [[nodiscard]] FILE *openAgain(int there, const struct stat &earlier, int file);
    void dropFile();
    void finishFile();
    [[nodiscard]] int putInPlace();

    char *fileName_ = nullptr;  // owned; null while nothing is saved and after a failed write
    std::string target_;        // the file that the links of fileName_ lead to
    std::string aside_;         // what is written until it replaces target_; "": it is written
                                // directly
    std::uint64_t bytesWritten_ = 0;
    FILE *file_ = nullptr;
    bool isWhole_ = true;
};

// A parser that saves the page with this URL; null when no copies are kept. The caller owns it.
[[nodiscard]] CAParseBinary *CANewCopy(CAURL *url);
