// Finds the links in the text of a page as browsers read it, block by block; knows nothing of what
// becomes of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "parse/CAscanHTML.h"

struct CAModernTag;
struct CAModernAttribute;

// Reads tags and their attributes by the rules of HTML: quotes hide a ">", character references are
// decoded, comments and the text of scripts hold no tags. Builds no document. What it finds does
// not depend on where blocks end. One scanner reads one page, on one thread.
class CAScanModern {
public:
    // The longest link that is handed on, and the longest value that is searched for several.
    static constexpr std::size_t kLongestLink = 4095;
    static constexpr std::size_t kLongestSet = 8191;

    // The sink gets the links of a tag when the tag ends, without images unless `inlineImages`.
    CAScanModern(CALinkSink *sink, bool inlineImages) : sink_(sink), inlineImages_(inlineImages) {}

    // Scans the block [data, end), which is only read; nothing need stand behind it.
    void scan(const char *data, const char *end);

private:
    enum class State : std::uint8_t {
        Text,              // waits for "<"
        TagOpen,           // behind "<": a letter, "/", "!" or "?" makes it more than text
        TagName,           // collects the name
        EndTagOpen,        // behind "</": waits for a letter
        EndTagName,        // skips the name
        BeforeName,        // waits for an attribute or ">"
        Slash,             // behind a "/" of its own: ">" closes the element
        Name,              // collects the name of an attribute
        AfterName,         // waits for "="
        BeforeValue,       // waits for a quote or the value
        DoubleQuoted,      // collects the value up to its quote
        SingleQuoted,      // the same
        Unquoted,          // collects the value up to white space or ">"
        Declaration,       // behind "<!": "-" may begin a comment
        DeclarationDash,   // behind "<!-": "-" begins a comment
        Skipped,           // waits for ">"
        CommentStart,      // behind "<!--": ">" ends it at once
        CommentStartDash,  // behind "<!---": the same
        Comment,           // waits for "-"
        CommentDash,       // behind "-": waits for another
        CommentEnd,        // behind "--": waits for ">"
        CommentBang,       // behind "--!": waits for ">"
        RawText,           // the text of a script: waits for "<"
        RawOpen,           // behind "<" in it: waits for "/"
        RawEndName,        // compares the name of the end tag
    };

    struct Input {
        const char *at;
        const char *const end;
    };

    // A collected value: its place in values_, where a byte more is kept for a NUL.
    struct Value {
        const CAModernAttribute *attribute;
        std::size_t begin;
        std::size_t end;
    };

    State step(Input *input);
    State skipPast(char wanted, State next, Input *input) const;
    State onMark(Input *input);
    State onTagOpen(State name, Input *input);
    State onName(Input *input);
    State onNameEnd(Input *input);
    State onRawEndName(Input *input);
    State onTagMark(Input *input);
    State onTagEnd(bool isClosed, Input *input);
    State onQuoted(char quote, Input *input);
    State onValue(const char *stop, Input *input);

    const CAModernAttribute *newAttribute();
    void addToValue(const char *from, const char *to);

    void tellValues();
    void tellValue(const Value &value);
    void tell(char *at, char *end, bool raisesDepth);
    void tellBase(char *at, char *end);
    void tellSet(char *at, char *end);
    void tellRefresh(char *at, char *end);

    CALinkSink *const sink_;
    const bool inlineImages_;
    State state_ = State::Text;
    bool baseIsKnown_ = false;
    const CAModernTag *tag_ = nullptr;              // null: of no interest, or an end tag
    const CAModernAttribute *attribute_ = nullptr;  // whose value is collected; null: none
    unsigned seen_ = 0;           // the attributes of the tag's row that were met, a bit each
    std::size_t nameLength_ = 0;  // of a tag or an attribute; in RawEndName what fits so far
    std::size_t valueCount_ = 0;
    std::size_t used_ = 0;          // of values_, for the found
    std::size_t valueLength_ = 0;   // of what is collected behind them
    std::array<char, 12> name_{};   // one byte more than the longest name in the table
    std::array<Value, 2> found_{};  // what the tag brought, in their order
    std::array<char, kLongestLink + 1 + kLongestSet + 1> values_{};
};
