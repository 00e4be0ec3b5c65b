#include "HTShared.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

// In front of the text.
struct Header {
    std::atomic<std::uint32_t> holders;
};

Header *headerOf(const char *text)
{
    return reinterpret_cast<Header *>(const_cast<char *>(text)) - 1;
}

}  // namespace

char *HTShared_new(std::size_t length)
{
    void *const memory = std::malloc(sizeof(Header) + length + 1);
    if (memory == nullptr) {
        return nullptr;
    }
    auto *const header = new (memory) Header{.holders = 1};
    char *const text = reinterpret_cast<char *>(header + 1);
    text[length] = '\0';
    return text;
}

const char *HTShared_hold(const char *text)
{
    if (text != nullptr) {
        headerOf(text)->holders.fetch_add(1, std::memory_order_relaxed);
    }
    return text;
}

void HTShared_release(const char *text)
{
    // All uses by the other holders must be complete before the last one frees the text.
    if (text != nullptr && headerOf(text)->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        std::free(headerOf(text));
    }
}
