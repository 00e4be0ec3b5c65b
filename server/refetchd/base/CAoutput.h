// The files that the agent writes as streams, and the outputs of all kinds that could not be
// written whole, for a line about each when the process ends. Any thread, unless stated otherwise.
#pragma once

#include <atomic>
#include <cstdio>
#include <string_view>

// What became of a stream of CAOpenOutput().
struct CAOutputState {
    std::atomic<bool> written = false;  // something was written, or could not be
    // The errno of the first call that failed; 0: none. A stdio stream only remembers that one has.
    std::atomic<int> error = 0;
    bool isShared = false;  // ShareAndAppend: another process had the file open, so that it was not
                            // truncated

    void reset(bool shared = false)
    {
        written = false;
        error = 0;
        isShared = shared;
    }
};

// How an output is opened.
enum class CAOutputMode {
    Truncate,
    // Each write goes to the end of the file, wherever another process has written meanwhile. The
    // file is truncated unless another process has it open in this mode (see CAIsShared()).
    ShareAndAppend,
};

// Opens `path` for writing, as fopen() with "w" does; null with errno set on failure. The caller
// closes the stream with fclose(). The first write that fails, also in fclose(), is noted as
// CANoteUnwritten() does. `state`, unless null, is reset and then follows the stream until that is
// closed; it stays the caller's.
[[nodiscard]] FILE *CAOpenOutput(const char *path, CAOutputState *state = nullptr,
                                 CAOutputMode mode = CAOutputMode::Truncate);

// True while a stream of ShareAndAppend, of any process, has the file `path` open.
[[nodiscard]] bool CAIsShared(const char *path);

// Notes that the output `path` could not be written whole, with the error number that says why.
// Only the first error of a path counts.
void CANoteUnwritten(std::string_view path, int error);

// The same for the saved copy `path`. Of all copies only the first is named; the others are
// counted.
void CANoteUnwrittenCopy(std::string_view path, int error);

// Writes a line about each output that was noted to standard error, unless an earlier call did.
// Async-signal-safe: takes no lock and no memory.
void CATellUnwritten();

// The file that replaces an output when `path` is configured: `path`, or the file that its symbolic
// links lead to. It need not exist. Any thread.
[[nodiscard]] std::string CAOutputTarget(const std::string &path);

// False when the name belongs to anything but a regular file; true when it is free. Any thread.
[[nodiscard]] bool CAIsReplaceable(const std::string &target);
