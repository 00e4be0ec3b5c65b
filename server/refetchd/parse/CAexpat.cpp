#include "parse/CAexpat.h"

#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "url/CAcharset.h"

namespace {

// Expat keeps each name of an element or attribute: the memory of a parser is counted, and refused
// beyond a bound. Its functions that allocate are not told for which parser they do; a header in
// front of each block remembers it.
struct alignas(std::max_align_t) BlockHeader {
    std::size_t size;  // with the header
    CAExpatMemory *memory;
};

// Of the parser for which expat allocates in this thread.
thread_local CAExpatMemory *memoryOfCall = nullptr;

BlockHeader *headerOf(void *data)
{
    return static_cast<BlockHeader *>(data) - 1;
}

void *resized(BlockHeader *block, CAExpatMemory *memory, std::size_t size)
{
    const std::size_t others = memory->used - (block == nullptr ? 0 : block->size);
    size += sizeof(BlockHeader);
    if (size < sizeof(BlockHeader) || size > memory->most - others) {
        return nullptr;
    }
    auto *const made = static_cast<BlockHeader *>(std::realloc(block, size));
    if (made == nullptr) {
        return nullptr;
    }
    memory->used = others + size;
    *made = {size, memory};
    return made + 1;
}

void *allocate(std::size_t size)
{
    return resized(nullptr, memoryOfCall, size);
}

void *reallocate(void *data, std::size_t size)
{
    if (data == nullptr) {
        return allocate(size);
    }
    BlockHeader *const block = headerOf(data);
    return resized(block, block->memory, size);
}

void release(void *data)
{
    if (data != nullptr) {
        BlockHeader *const block = headerOf(data);
        block->memory->used -= block->size;
        std::free(block);
    }
}

// The one character of a text in UTF-8.
int codePoint(std::string_view utf8)
{
    constexpr unsigned kContinued = 0x3F;
    unsigned point = 0;
    for (const char c : utf8) {
        point = point << 6U | (static_cast<unsigned char>(c) & kContinued);
    }
    const unsigned bits = utf8.size() == 1 ? 7 : 1 + 5 * static_cast<unsigned>(utf8.size());
    point = utf8.size() == 1 ? static_cast<unsigned char>(utf8.front()) : point;
    return static_cast<int>(point & ((1U << bits) - 1));
}

// True when the charset has a Chinese character, as those do that need several bytes for some.
bool isWide(const CACharset &charset)
{
    return !charset.encodeQuery("\xE4\xB8\x80").starts_with("%26%23");
}

void mapBytes(const CACharset &charset, XML_Encoding *encoding)
{
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    for (std::size_t i = 0; i < std::size(encoding->map); ++i) {
        const char byte = static_cast<char>(i);
        const std::string utf8 = charset.toUtf8({&byte, 1});
        encoding->map[i] = utf8.empty() || utf8 == kReplacement ? -1 : codePoint(utf8);
    }
}

// Everything beyond ASCII begins a character of two bytes, for which expat asks the caller.
void mapAscii(XML_Encoding *encoding)
{
    constexpr int kFirstBeyond = 128;
    for (std::size_t i = 0; i < std::size(encoding->map); ++i) {
        encoding->map[i] = i < kFirstBeyond ? static_cast<int>(i) : -2;
    }
}

}  // namespace

CAExpatCall::CAExpatCall(CAExpatMemory *memory) : outer_(std::exchange(memoryOfCall, memory)) {}

CAExpatCall::~CAExpatCall()
{
    memoryOfCall = outer_;
}

XML_Parser CANewExpatParser(CAExpatMemory *memory)
{
    constexpr XML_Memory_Handling_Suite kFunctions = {allocate, reallocate, release};
    const CAExpatCall call(memory);
    return XML_ParserCreate_MM(nullptr, &kFunctions, nullptr);
}

CAExpatCharset CAMapCharset(const char *name, XML_Encoding *encoding)
{
    const std::unique_ptr<CACharset> charset = CACharset::find(name);
    if (charset == nullptr) {
        return CAExpatCharset::Unknown;
    }
    if (charset->isUtf8()) {
        return CAExpatCharset::Utf8;
    }
    *encoding = {};
    if (isWide(*charset)) {
        mapAscii(encoding);
        return CAExpatCharset::Wide;
    }
    mapBytes(*charset, encoding);
    return CAExpatCharset::Bytes;
}
