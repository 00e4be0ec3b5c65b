// A writable copy of a text whose NUL is the last byte before a page that can be neither read nor
// written: one byte too far faults.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string_view>

class GuardedText {
public:
    explicit GuardedText(std::string_view text)
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t room = (text.size() + page) / page * page;
        size_ = room + page;
        memory_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        char *const end = static_cast<char *>(memory_) + room;
        mprotect(end, page, PROT_NONE);
        text_ = end - text.size() - 1;
        std::memcpy(text_, text.data(), text.size());  // the NUL is there already
    }
    ~GuardedText() { munmap(memory_, size_); }
    GuardedText(const GuardedText &) = delete;
    GuardedText &operator=(const GuardedText &) = delete;

    [[nodiscard]] char *data() const { return text_; }

private:
    std::size_t size_;
    void *memory_;
    char *text_;
};
