#include "HTMemory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

void HTOutOfMemory(const char *source, const char *function, int line, std::size_t bytes)
{
    std::fprintf(stderr, "%s: %s: out of memory at line %d (%zu bytes wanted).\n", source, function,
                 line, bytes);
}

namespace {

constexpr std::size_t kAlignment = alignof(std::max_align_t);
constexpr std::size_t kBlockSize =
    1024;  // most uses take some hundreds of bytes; each thread has one

constexpr std::size_t roundUp(std::size_t size)
{
    return (size + kAlignment - 1) / kAlignment * kAlignment;
}

}  // namespace

struct alignas(kAlignment) HTPool::Block {
    Block *older;
    std::size_t size;  // bytes behind this header
    std::size_t used;

    [[nodiscard]] char *data() { return reinterpret_cast<char *>(this + 1); }
};

HTPool::~HTPool()
{
    while (top_ != nullptr) {
        Block *const older = top_->older;
        std::free(top_);
        top_ = older;
    }
}

void *HTPool::alloc(std::size_t size)
{
    const std::size_t wanted = roundUp(std::max<std::size_t>(size, 1));
    if (top_ == nullptr || top_->size - top_->used < wanted) {
        const std::size_t room = std::max(wanted, kBlockSize);
        void *const memory = std::malloc(sizeof(Block) + room);
        if (memory == nullptr) {
            HTOutOfMemory("library/HTMemory", "HTPool::alloc", __LINE__, sizeof(Block) + room);
            return nullptr;
        }
        top_ = new (memory) Block{.older = top_, .size = room, .used = 0};
    }
    void *const result = top_->data() + top_->used;
    top_->used += wanted;
    return result;
}

char *HTPool::copy(const char *text)
{
    return copy(text, std::strlen(text));
}

char *HTPool::copy(const char *text, std::size_t length)
{
    char *const result = static_cast<char *>(alloc(length + 1));
    if (result != nullptr) {
        std::memcpy(result, text, length);
        result[length] = '\0';
    }
    return result;
}

std::size_t HTPool::held() const
{
    std::size_t total = 0;
    for (const Block *block = top_; block != nullptr; block = block->older) {
        total += sizeof(Block) + block->size;
    }
    return total;
}

HTPoolScope::HTPoolScope(HTPool *pool)
    : pool_(pool), block_(pool->top_), used_(block_ == nullptr ? 0 : block_->used)
{
}

HTPoolScope::~HTPoolScope()
{
    // One block of the usual size is kept, so that repeated scopes need no heap call.
    while (pool_->top_ != block_) {
        HTPool::Block *const block = pool_->top_;
        if (block_ == nullptr && block->older == nullptr && block->size == kBlockSize) {
            block->used = 0;
            return;
        }
        pool_->top_ = block->older;
        std::free(block);
    }
    if (block_ != nullptr) {
        block_->used = used_;
    }
}
