// Memory services of the library: the out-of-memory report, and the pool for scratch memory.
//
// A pool is a chain of blocks that only grows until a scope ends; then everything that was taken
// inside the scope is released at once. Scratch results (a match, a copy to be split) live in the
// pool of the calling thread until the innermost scope around the call ends:
//
//     const HTPoolScope scope(pool);
//     char *copy = pool->copy(text);    // no free; gone at the closing brace
#pragma once

#include <cstddef>

// Reports that `bytes` bytes could not be allocated: one line to standard error that names the
// source path (such as "library/HTHash"), the function and the line. Returns; the caller then gives
// its own failure result. Any thread.
void HTOutOfMemory(const char *source, const char *function, int line, std::size_t bytes);

// Scratch memory of one thread. Not safe to share between threads.
class HTPool {
public:
    constexpr HTPool() = default;
    ~HTPool();
    HTPool(const HTPool &) = delete;
    HTPool &operator=(const HTPool &) = delete;

    // `size` bytes, not cleared, aligned for any type; nullptr (reported) when memory is out.
    [[nodiscard]] void *alloc(std::size_t size);
    // A NUL-terminated copy of `text`, or of its first `length` bytes; nullptr when memory is out.
    [[nodiscard]] char *copy(const char *text);
    [[nodiscard]] char *copy(const char *text, std::size_t length);

    // Bytes held from the heap, for tests and statistics.
    [[nodiscard]] std::size_t held() const;

private:
    friend class HTPoolScope;
    struct Block;

    Block *top_ = nullptr;  // the block that is being filled; older ones behind it
};

// Releases, at its end, all memory that was taken from the pool since its start. Scopes nest.
class HTPoolScope {
public:
    explicit HTPoolScope(HTPool *pool);
    ~HTPoolScope();
    HTPoolScope(const HTPoolScope &) = delete;
    HTPoolScope &operator=(const HTPoolScope &) = delete;

private:
    HTPool *const pool_;
    HTPool::Block *const block_;
    const std::size_t used_;
};
