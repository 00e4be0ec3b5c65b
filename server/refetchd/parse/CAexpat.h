// What expat needs of its caller: memory that is bounded, and charsets that it does not know.
#pragma once

#include <expat.h>

#include <cstddef>
#include <cstdint>

// Counts the memory of one parser.
struct CAExpatMemory {
    std::size_t most = 0;  // bytes; beyond that the parser gets none
    std::size_t used = 0;
};

// Every call into a parser that may need memory stands in the scope of one of these, on one thread.
class CAExpatCall {
public:
    explicit CAExpatCall(CAExpatMemory *memory);
    ~CAExpatCall();
    CAExpatCall(const CAExpatCall &) = delete;
    CAExpatCall &operator=(const CAExpatCall &) = delete;

private:
    CAExpatMemory *const outer_;
};

// A parser that uses this memory, which outlives it; null when memory is out. The caller frees it
// with XML_ParserFree().
XML_Parser CANewExpatParser(CAExpatMemory *memory);

enum class CAExpatCharset : std::uint8_t {
    Unknown,
    Utf8,   // by a name that expat does not know; `encoding` stays as it was
    Bytes,  // a byte for each character
    Wide,   // several bytes for some: only ASCII is mapped, and the caller sets `encoding->convert`
};

// Fills `encoding` in for the charset of this name.
CAExpatCharset CAMapCharset(const char *name, XML_Encoding *encoding);
