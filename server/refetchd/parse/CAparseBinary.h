// The sink of bodies that are to be kept: writes one body into a file below the save directory.
#pragma once

#include <cstdint>
#include <cstdio>

#include "parse/CAparse.h"

// The file's path mirrors the URL: save directory, host, "/", path ("index.html" behind a final
// "/"). Host and path stand in it as they are, but a path that would leave its host's directory is
// treated like a file that cannot be opened. Without an open file the body is absorbed.
//
// Any thread. Files are opened one at a time, under a lock of the module's own, and the trace lines
// about it are written under that lock. When another thread turns the file into a directory while
// it is being written, writing goes on and the body is complete under its new name.
class CAParseBinary : public CAParser {
public:
    explicit CAParseBinary(CAURL *url);
    ~CAParseBinary() override;  // the file is complete now
    CAParseBinary(const CAParseBinary &) = delete;
    CAParseBinary &operator=(const CAParseBinary &) = delete;

    // Writes the block; a file that cannot take all of it is removed. Takes everything, leaves both
    // flags alone.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

private:
    void openFile();
    int create_place();
    void dropFile();
    void removeFile();

    char *fileName_ = nullptr;  // owned; null without saving and after a failed write
    std::uint64_t bytesWritten_ = 0;
    FILE *file_ = nullptr;
};
