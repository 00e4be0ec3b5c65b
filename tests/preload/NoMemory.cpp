// Preloaded into a program: all threads but the first one get no memory from the heap.
#include <unistd.h>

#include <cstdlib>

extern "C" {
void *__libc_malloc(std::size_t size);                     // NOLINT(bugprone-reserved-identifier)
void *__libc_calloc(std::size_t count, std::size_t size);  // NOLINT(bugprone-reserved-identifier)

void *malloc(std::size_t size)
{
    return getpid() == gettid() ? __libc_malloc(size) : nullptr;
}
void *calloc(std::size_t count, std::size_t size)
{
    return getpid() == gettid() ? __libc_calloc(count, size) : nullptr;
}
}
