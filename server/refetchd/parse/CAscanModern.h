// Finds the links in the text of a page, block by block, as browsers do. What happens to them is up
// to a CALinkSink.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "parse/CApageCharset.h"
#include "parse/CAscanHTML.h"
#include "parse/CAwholeTag.h"

// Reads tags and their attributes by the rules of HTML: a ">" in quotes does not end a tag,
// character references are decoded, and comments and scripts hold no tags. Builds no document.
// Finds the same links wherever the blocks end. One scanner reads one page, on one thread.
class CAScanModern {
public:
    // In bytes: the longest link that is passed on, and the longest one in a set of images before
    // its character references are decoded. Longer ones are dropped (traced). A set may be longer.
    static constexpr std::size_t kLongestLink = 4095;
    static constexpr std::size_t kLongestCandidate = 8191;

    // The sink, which stays the caller's, gets the links of a tag when the tag ends, but the images
    // of a long set already while it is read. Links to images are left out unless `inlineImages` is
    // set.
    CAScanModern(CALinkSink *sink, bool inlineImages) : sink_(sink), inlineImages_(inlineImages) {}

    // Declares the charset that the headers of the response name; "" if they name none. A byte
    // order mark in the page counts more than this, a <meta> counts less, and only for the links
    // after it. All links are told in UTF-8.
    void declareCharset(std::string_view label)
    {
        charset_.declare(CAPageCharset::Source::Header, label);
    }

    // During a call to the sink: the charset in which browsers encode the query of the link; null
    // for UTF-8.
    [[nodiscard]] const CACharset *charsetOfQuery() const { return charset_.ofQuery(); }

    // Scans the block [data, end). It is only read, and needs no NUL after it.
    void scan(const char *data, const char *end);

private:
    enum class State : std::uint8_t {
        Text,              // waits for "<"
        TagOpen,           // after "<": a letter, "/", "!" or "?" begins markup, else it is text
        TagName,           // collects the name
        EndTagOpen,        // after "</": a letter begins the name, else skips to ">"
        EndTagName,        // skips the name
        BeforeName,        // waits for an attribute or ">"
        Slash,             // after a "/" that is in no name or value: ">" closes the element
        Name,              // collects the name of an attribute
        AfterName,         // waits for "="
        BeforeValue,       // waits for a quote or the value
        DoubleQuoted,      // collects the value up to the closing quote
        SingleQuoted,      // the same
        Unquoted,          // collects the value up to white space or ">"
        Declaration,       // after "<!": "-" may begin a comment
        DeclarationDash,   // after "<!-": "-" begins a comment
        Skipped,           // waits for ">"
        CommentStart,      // after "<!--": ">" ends it at once
        CommentStartDash,  // after "<!---": the same
        Comment,           // waits for "-"
        CommentDash,       // after "-": waits for another
        CommentEnd,        // after "--": waits for ">"
        CommentBang,       // after "--!": waits for ">"
        RawText,           // the text of a script: waits for "<"
        RawOpen,           // after "<" in it: "/" may begin the end tag
        RawEndName,        // after "</" in it: compares the name with that of the start tag
    };

    // What the next byte of a set of images belongs to.
    enum class SetState : std::uint8_t {
        BeforeUrl,    // white space and commas before a URL, or the URL, which is there as a whole
        TooLong,      // the rest of a URL that is dropped
        Descriptors,  // after the URL, such as "2x": "," ends them
        Parentheses,  // the same, after "(": waits for ")"
    };

    struct Input {
        const char *at;
        const char *const end;
    };

    using Value = CAWholeTag::Value;

    State step(Input *input);
    State skipPast(char wanted, State next, Input *input) const;
    State onMark(Input *input);
    State onTagOpen(State name, Input *input);
    State onName(const char *begin, Input *input);
    std::string_view keepName(std::string_view piece);
    State onTagNameEnd(std::string_view name, Input *input);
    State onNameEnd(std::string_view name, Input *input);
    State onRawEndName(Input *input);
    State onTagMark(Input *input);
    State onTagEnd(bool isClosed, Input *input);
    State onQuoted(char quote, Input *input);
    State onValue(const char *stop, Input *input);

    void onValueEnd();

    bool takeWholeTag(const CAWholeTag &tag);
    void addToValue(const char *from, const char *to);
    void emptySet();
    char *passWord(char *begin, char *end);
    [[nodiscard]] bool isInDescriptors() const;

    char *writable(std::string_view text);
    void tellValues();
    void decode(char **at, char **end);
    void tellValue(const Value &value);
    void tell(char *at, char *end, bool raisesDepth);
    void tellLink(const char *link, bool raisesDepth);
    void tellBase(char *at, char *end);
    void tellSet(char *at, char *end);
    char *tellImage(char *at, char *end);
    char *skipDescriptors(char *at, const char *end);
    void tellRefresh(char *at, char *end);

    CALinkSink *const sink_;
    const bool inlineImages_;
    CAPageCharset charset_;
    State state_ = State::Text;
    SetState setState_ = SetState::BeforeUrl;
    bool baseIsKnown_ = false;
    const CAModernTag *tag_ = nullptr;              // null: not in the table, or an end tag
    const CAModernAttribute *attribute_ = nullptr;  // collects its value; null: skips the value
    bool isWanted_ = false;                         // the links of the current tag count
    bool isContentType_ = false;  // the current tag is a <meta> that stands for that header
    bool isWhole_ = false;        // the found values are in the block, not in values_
    CAModernAttributes attributes_;
    std::size_t nameLength_ = 0;   // of name_; in RawEndName the number of bytes that match so far
    std::size_t valueCount_ = 0;   // of found_
    std::size_t used_ = 0;         // bytes of values_ that the found values use
    std::size_t valueLength_ = 0;  // bytes collected so far of the next value, after those
    std::array<char, 12> name_{};  // one byte longer than the longest name in the table
    // The links and sets of the current tag, complete, in the tag's order. Those in values_ have a
    // free byte behind them.
    std::array<Value, 2> found_{};
    std::array<char, 2 * (kLongestLink + 1) + kLongestCandidate + 1> values_{};
};
