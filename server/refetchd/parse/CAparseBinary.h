// Saves the body of one response in a file below the save directory.
#pragma once

#include <cstdint>
#include <cstdio>

#include "parse/CAparse.h"

// The path of the file follows the URL: save directory, host, "/", path with query, and
// "index.html" if that ends in "/". Host and path are used unchanged; but if they lead out of the
// directory of the host, no file is opened. Without an open file the body is dropped.
//
// Parsers on different threads may save at the same time. Files are opened one at a time, under a
// lock of this module; the directories are created, and traced, under that lock. When another
// thread needs a directory in place of this file (see turnIntoDirectory()) while it is being
// written, the file is renamed and writing goes on.
class CAParseBinary : public CAParser {
public:
    explicit CAParseBinary(CAURL *url);
    ~CAParseBinary() override;  // closes the file
    CAParseBinary(const CAParseBinary &) = delete;
    CAParseBinary &operator=(const CAParseBinary &) = delete;

    // Writes the block; if that fails, removes the file and drops the rest of the body. Takes
    // everything and leaves both flags as they are; they may be null.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

private:
    void openFile();
    int create_place();
    void dropFile();
    void removeFile();

    char *fileName_ = nullptr;  // owned; null while nothing is saved and after a failed write
    std::uint64_t bytesWritten_ = 0;
    FILE *file_ = nullptr;
};

// A parser that saves the page with this URL; null when no copies are kept. The caller owns it.
[[nodiscard]] CAParseBinary *CANewCopy(CAURL *url);
