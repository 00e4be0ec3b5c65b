#include "parse/CAscanModern.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "HTString.h"
#include "base/CAtrace.h"
#include "parse/CAlinkText.h"
#include "parse/CAmodernTags.h"
#include "parse/CAplainTags.h"

namespace {

using Use = CAModernUse;

constexpr HTCharacterSet kSpace(" \t\n\f\r");
constexpr HTCharacterSet kEndsTagName(" \t\n\f\r/>");
constexpr HTCharacterSet kEndsName(" \t\n\f\r/>=");
constexpr HTCharacterSet kEndsValue(" \t\n\f\r>");
constexpr HTCharacterSet kBeforeUrl(" \t\n\f\r,");
constexpr HTCharacterSet kEndsDescriptors(",(");
constexpr HTCharacterSet kEndsParentheses(")");
constexpr HTCharacterSet kTime("0123456789.");
constexpr HTCharacterSet kEndsTime(" \t\n\f\r;,");

// Templates, because a block is const and a value is changed in place.
template <typename Char>
Char *find(Char *at, const char *end, const HTCharacterSet &set)
{
    while (at != end && !set.has(*at)) {
        ++at;
    }
    return at;
}

template <typename Char>
Char *skip(Char *at, const char *end, const HTCharacterSet &set)
{
    while (at != end && set.has(*at)) {
        ++at;
    }
    return at;
}

const char *find(const char *at, const char *end, char wanted)
{
    const void *const found = std::memchr(at, wanted, static_cast<std::size_t>(end - at));
    return found == nullptr ? end : static_cast<const char *>(found);
}

bool isLink(Use use)
{
    return use != Use::Word && use != Use::Relation && use != Use::Charset;
}

// What a <link> may be without that browsers ask for its URL.
constexpr std::string_view kHints[] = {"dns-prefetch", "preconnect", "pingback", "profile"};

// True when the value of "rel" has words, and all of them are hints.
bool areHints(std::string_view words)
{
    const char *const end = words.data() + words.size();
    const char *at = skip(words.data(), end, kSpace);
    bool areAll = at != end;
    while (areAll && at != end) {
        const char *const stop = find(at, end, kSpace);
        const std::string_view word(at, static_cast<std::size_t>(stop - at));
        areAll = std::any_of(std::begin(kHints), std::end(kHints),
                             [word](std::string_view hint) { return CAIsWord(word, hint); });
        at = skip(stop, end, kSpace);
    }
    return areAll;
}

}  // namespace

void CAScanModern::scan(const char *data, const char *end)
{
    if (!charset_.hasSeenBegin()) {
        charset_.seeBegin(data, end);
    }
    Input input{.at = data, .end = end};
    while (input.at != input.end) {
        state_ = step(&input);
    }
}

// A step reads at least one byte, or leads to a state that does. For speed, one step takes the
// commonest tags, such as "<p>", "</p>" and "<p class="...">", through several states at once when
// the block holds them whole.
CAScanModern::State CAScanModern::step(Input *input)
{
    switch (state_) {
    case State::Text:
        input->at = CAPassPlainTags(input->at, input->end);
        if (input->at == input->end) {
            return State::Text;
        }
        state_ = State::TagOpen;
        if (++input->at == input->end) {
            return State::TagOpen;
        }
        [[fallthrough]];
    case State::TagOpen: return onTagOpen(State::TagName, input);
    case State::EndTagOpen: return onTagOpen(State::EndTagName, input);
    case State::Comment: return skipPast('-', State::CommentDash, input);
    case State::RawText: return skipPast('<', State::RawOpen, input);
    case State::Skipped: return skipPast('>', State::Text, input);
    case State::Declaration:
    case State::DeclarationDash:
    case State::CommentStart:
    case State::CommentStartDash:
    case State::CommentDash:
    case State::CommentEnd:
    case State::CommentBang:
    case State::RawOpen: return onMark(input);
    case State::TagName:
    case State::EndTagName:
    case State::Name: return onName(input->at, input);
    case State::RawEndName: return onRawEndName(input);
    case State::BeforeName:
    case State::AfterName:
    case State::BeforeValue:
        input->at = skip(input->at, input->end, kSpace);
        return input->at == input->end ? state_ : onTagMark(input);
    case State::Slash: return *input->at == '>' ? onTagEnd(true, input) : State::BeforeName;
    case State::DoubleQuoted: return onQuoted('"', input);
    case State::SingleQuoted: return onQuoted('\'', input);
    case State::Unquoted: break;
    }
    return onValue(find(input->at, input->end, kEndsValue), input);
}

// Skips past the next `wanted` byte. Stays in the current state when the block has none.
CAScanModern::State CAScanModern::skipPast(char wanted, State next, Input *input) const
{
    const char *const found = find(input->at, input->end, wanted);
    input->at = found == input->end ? found : found + 1;
    return found == input->end ? state_ : next;
}

// The states in which the next byte alone decides, most of them around comments. A byte that a row
// names is consumed; any other byte is left to the next state, which the row with kElse gives.
CAScanModern::State CAScanModern::onMark(Input *input)
{
    constexpr char kElse = '\0';
    struct Row {
        State from;
        char byte;
        State to;
    };
    static constexpr Row kRows[] = {
        {State::TagOpen, '/', State::EndTagOpen},
        {State::TagOpen, '!', State::Declaration},
        {State::TagOpen, '?', State::Skipped},
        {State::TagOpen, kElse, State::Text},
        {State::EndTagOpen, kElse, State::Skipped},
        {State::Declaration, '-', State::DeclarationDash},
        {State::Declaration, kElse, State::Skipped},
        {State::DeclarationDash, '-', State::CommentStart},
        {State::DeclarationDash, kElse, State::Skipped},
        {State::CommentStart, '-', State::CommentStartDash},
        {State::CommentStart, '>', State::Text},
        {State::CommentStart, kElse, State::Comment},
        {State::CommentStartDash, '-', State::CommentEnd},
        {State::CommentStartDash, '>', State::Text},
        {State::CommentStartDash, kElse, State::Comment},
        {State::CommentDash, '-', State::CommentEnd},
        {State::CommentDash, kElse, State::Comment},
        {State::CommentEnd, '>', State::Text},
        {State::CommentEnd, '-', State::CommentEnd},
        {State::CommentEnd, '!', State::CommentBang},
        {State::CommentEnd, kElse, State::Comment},
        {State::CommentBang, '>', State::Text},
        {State::CommentBang, '-', State::CommentDash},
        {State::CommentBang, kElse, State::Comment},
        {State::RawOpen, '/', State::RawEndName},
        {State::RawOpen, kElse, State::RawText},
    };
    const Row *row = kRows;
    while (row->from != state_ || (row->byte != *input->at && row->byte != kElse)) {
        ++row;
    }
    nameLength_ = 0;
    input->at += row->byte == kElse ? 0 : 1;
    return row->to;
}

// A letter begins a name and leads to the state `name`.
CAScanModern::State CAScanModern::onTagOpen(State name, Input *input)
{
    if (name == State::TagName && *input->at == '/' && input->end - input->at > 1) {
        ++input->at;
        state_ = State::EndTagOpen;
        name = State::EndTagName;
    }
    if (!HTIsLetter(*input->at)) {
        return onMark(input);
    }
    state_ = name;
    nameLength_ = 0;
    return onName(input->at, input);
}

// Reads a name, or the rest of one whose begin is in name_. Its next bytes are [begin, input->at),
// whatever they are, and those up to a byte that ends it. A name that the block holds whole is read
// in its place.
CAScanModern::State CAScanModern::onName(const char *begin, Input *input)
{
    const bool isTag = state_ != State::Name;
    input->at = find(input->at, input->end, isTag ? kEndsTagName : kEndsName);
    std::string_view name(begin, static_cast<std::size_t>(input->at - begin));
    if (nameLength_ != 0 || input->at == input->end) {
        name = keepName(name);
    }
    if (input->at == input->end) {
        return state_;
    }
    return isTag ? onTagNameEnd(name, input) : onNameEnd(name, input);
}

// Adds to the name in name_. What does not fit is cut off; the name is then still longer than any
// in the table. Returns it as far as it is there.
std::string_view CAScanModern::keepName(std::string_view piece)
{
    nameLength_ += piece.copy(name_.data() + nameLength_, name_.size() - nameLength_);
    return {name_.data(), nameLength_};
}

CAScanModern::State CAScanModern::onTagNameEnd(std::string_view name, Input *input)
{
    tag_ = state_ == State::TagName ? CAFindModernTag(name) : nullptr;
    isWanted_ = tag_ != nullptr && tag_->word.empty();
    isContentType_ = false;
    isWhole_ = false;
    attributes_ = tag_ != nullptr ? CAModernAttributes(*tag_) : CAModernAttributes();
    setState_ = SetState::BeforeUrl;
    valueCount_ = 0;
    used_ = 0;
    if (*input->at == '>') {
        return onTagEnd(false, input);
    }
    if (tag_ == nullptr) {
        return State::BeforeName;
    }
    const CAWholeTag whole = CAReadWholeTag(*tag_, input->at, input->end);
    if (whole.end == nullptr || !takeWholeTag(whole)) {
        return State::BeforeName;
    }
    input->at = whole.end;
    return onTagEnd(whole.isClosed, input);
}

// Takes over the values of a tag that is in the block as a whole. Returns false, and does nothing,
// if one of them is longer than a link.
bool CAScanModern::takeWholeTag(const CAWholeTag &tag)
{
    const auto *const end = tag.values.begin() + tag.count;
    if (std::any_of(tag.values.begin(), end,
                    [](const Value &value) { return value.text.size() > kLongestLink; })) {
        return false;
    }
    isWhole_ = true;
    std::for_each(tag.values.begin(), end, [this](const Value &value) {
        const char *const text = value.text.data();
        attribute_ = value.attribute;
        valueLength_ = 0;
        if (isLink(value.attribute->use)) {
            found_[valueCount_++] = value;
        } else {
            addToValue(text, text + value.text.size());
            onValueEnd();
        }
    });
    attribute_ = nullptr;
    return true;
}

CAScanModern::State CAScanModern::onNameEnd(std::string_view name, Input *input)
{
    attribute_ = attributes_.take(name);
    valueLength_ = 0;
    if (input->end - input->at > 2 && input->at[0] == '=' && input->at[1] == '"') {
        input->at += 2;
        state_ = State::DoubleQuoted;
        return onQuoted('"', input);
    }
    return State::AfterName;
}

// Compares a name after "</" in raw text with the name of the start tag. If they are equal, the
// rest is read like any other end tag.
CAScanModern::State CAScanModern::onRawEndName(Input *input)
{
    const std::string_view name = tag_->name;
    if (nameLength_ == name.size() && kEndsTagName.has(*input->at)) {
        return State::EndTagName;
    }
    if (nameLength_ == name.size() || HTLower(*input->at) != name[nameLength_]) {
        return State::RawText;
    }
    ++nameLength_;
    ++input->at;
    return State::RawEndName;
}

// Handles the next byte that is no white space, before or after an attribute's name or before its
// value. Before a name, any byte except "/" and ">" begins one, even "=".
CAScanModern::State CAScanModern::onTagMark(Input *input)
{
    const char c = *input->at;
    if (state_ == State::AfterName) {
        input->at += c == '=' ? 1 : 0;
        return c == '=' ? State::BeforeValue : State::BeforeName;
    }
    if (state_ == State::BeforeValue) {
        input->at += c == '"' || c == '\'' ? 1 : 0;
        return c == '"' ? State::DoubleQuoted : c == '\'' ? State::SingleQuoted : State::Unquoted;
    }
    if (c == '>') {
        return onTagEnd(false, input);
    }
    if (c == '/') {
        ++input->at;
        return State::Slash;
    }
    nameLength_ = 0;
    state_ = State::Name;
    return onName(input->at++, input);
}

// A closed tag such as <script/> counts as an element without text. Browsers do so only within SVG;
// elsewhere they ignore the "/". Here the mistake only costs a search for links in a script, while
// the opposite mistake would skip the rest of the page.
CAScanModern::State CAScanModern::onTagEnd(bool isClosed, Input *input)
{
    ++input->at;
    if (tag_ == nullptr) {
        return State::Text;
    }
    tellValues();
    return tag_->hasRawText && !isClosed ? State::RawText : State::Text;
}

CAScanModern::State CAScanModern::onQuoted(char quote, Input *input)
{
    const char *const stop = find(input->at, input->end, quote);
    const State next = onValue(stop, input);
    if (stop == input->end) {
        return next;
    }
    ++input->at;
    const bool isLast = input->at != input->end && *input->at == '>';
    return isLast ? onTagEnd(false, input) : next;
}

// Adds the bytes up to `stop` to the value. It ends there, unless `stop` is the end of the block.
CAScanModern::State CAScanModern::onValue(const char *stop, Input *input)
{
    addToValue(input->at, stop);
    input->at = stop;
    if (stop == input->end) {
        return state_;
    }
    if (attribute_ != nullptr) {
        onValueEnd();
        attribute_ = nullptr;
    }
    return State::BeforeName;
}

void CAScanModern::onValueEnd()
{
    const Use use = attribute_->use;
    char *const at = values_.data() + used_;
    if (isLink(use)) {
        found_[valueCount_++] = {attribute_, {at, valueLength_}};
        used_ += valueLength_ + 1;
        return;
    }
    const char *const end = CADecodeReferences(at, at + valueLength_);
    const std::string_view words(at, static_cast<std::size_t>(end - at));
    if (use == Use::Charset) {
        charset_.declare(CAPageCharset::Source::Meta, words);
        return;
    }
    isWanted_ = use == Use::Word ? CAIsWord(words, tag_->word) : !areHints(words);
    isContentType_ = CAIsWord(words, "content-type");
}

void CAScanModern::addToValue(const char *from, const char *to)
{
    if (attribute_ == nullptr) {
        return;
    }
    const bool isSet = attribute_->use == Use::ImageSet;
    const std::size_t limit = isSet ? kLongestCandidate : kLongestLink;
    for (;;) {
        const std::size_t length =
            std::min(static_cast<std::size_t>(to - from), limit - valueLength_);
        std::memcpy(values_.data() + used_ + valueLength_, from, length);
        valueLength_ += length;
        from += length;
        if (from == to) {
            return;
        }
        if (!isSet) {
            CATrace("HTML........ parser dropping a value of more than %u bytes.\n",
                    static_cast<unsigned>(limit));
            attribute_ = nullptr;
            return;
        }
        emptySet();
    }
}

// Makes room for more of a set that has filled its room: tells the images up to the last white
// space, which ends no image in the middle, nor a reference or a character of several bytes.
void CAScanModern::emptySet()
{
    char *const begin = values_.data() + used_;
    char *const end = begin + kLongestCandidate;
    char *stop = end;
    while (stop != begin && !kSpace.has(stop[-1])) {
        --stop;
    }
    if (stop == begin) {
        stop = passWord(begin, end);
    } else if (inlineImages_) {
        char *at = begin;
        char *last = stop;
        decode(&at, &last);
        tellSet(at, last);
    }
    valueLength_ = static_cast<std::size_t>(end - stop);
    std::memmove(begin, stop, valueLength_);
}

// Passes what cannot be kept of a set that has filled its room without any white space: either
// descriptors, or a URL up to its last byte, which may be a comma that ends it.
char *CAScanModern::passWord(char *begin, char *end)
{
    char *at = begin;
    while (at != end && isInDescriptors()) {
        at = skipDescriptors(at, end);
    }
    if (at != begin) {
        return at;
    }
    CATrace("HTML........ parser dropping an image of more than %u bytes.\n",
            static_cast<unsigned>(kLongestCandidate));
    setState_ = SetState::TooLong;
    return end - 1;
}

bool CAScanModern::isInDescriptors() const
{
    return setState_ == SetState::Descriptors || setState_ == SetState::Parentheses;
}

// The text of a found value, with a free byte behind it, which is enough for one at a time.
char *CAScanModern::writable(std::string_view text)
{
    if (isWhole_) {
        text.copy(values_.data(), text.size());
        return values_.data();
    }
    return values_.data() + (text.data() - values_.data());
}

void CAScanModern::tellValues()
{
    for (std::size_t i = 0; i < valueCount_; ++i) {
        if (isWanted_) {
            tellValue(found_[i]);
        } else if (isContentType_ && found_[i].attribute->use == Use::Refresh) {
            char *const at = writable(found_[i].text);
            const char *const end = CADecodeReferences(at, at + found_[i].text.size());
            const std::string_view type(at, static_cast<std::size_t>(end - at));
            charset_.declare(CAPageCharset::Source::Meta, CACharsetLabel(type));
        }
    }
}

// Replaces the bytes of the page in [at, end) by their text.
void CAScanModern::decode(char **at, char **end)
{
    charset_.toUtf8(at, end);
    *end = CADecodeReferences(*at, *end);
}

void CAScanModern::tellValue(const Value &value)
{
    const Use use = value.attribute->use;
    if (!inlineImages_ && (use == Use::Image || use == Use::ImageSet)) {
        CATrace("HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n");
        return;
    }
    char *at = writable(value.text);
    char *end = at + value.text.size();
    const bool isAlone = use == Use::DeeperLink || use == Use::Link || use == Use::Image;
    if (isAlone && CAIsOrdinaryLink(value.text)) {
        charset_.takeAscii();
        *end = '\0';
        return value.text.empty() ? void() : tellLink(at, use == Use::DeeperLink);
    }
    decode(&at, &end);
    switch (use) {
    case Use::Link:
    case Use::Image: return tell(at, end, false);
    case Use::DeeperLink: return tell(at, end, true);
    case Use::ImageSet: return tellSet(at, end);
    case Use::Base: return tellBase(at, end);
    case Use::Refresh: return tellRefresh(at, end);
    case Use::Word:
    case Use::Charset:
    case Use::Relation: break;
    }
}

void CAScanModern::tell(char *at, char *end, bool raisesDepth)
{
    const std::string_view link = CACutLink(at, end, kLongestLink);
    if (!link.empty()) {
        tellLink(link.data(), raisesDepth);
    }
}

void CAScanModern::tellLink(const char *link, bool raisesDepth)
{
    CATrace("Found....... URL \"%s\".\n", link);
    sink_->processFoundUrl(link, raisesDepth);
}

void CAScanModern::tellBase(char *at, char *end)
{
    const std::string_view href = CACutLink(at, end, kLongestLink);
    if (!href.empty() && !baseIsKnown_) {
        baseIsKnown_ = true;
        CATrace("Found....... base \"%s\".\n", href.data());
        sink_->processFoundBase(href.data());
    }
}

// set := { white space | "," } URL [ white space descriptors "," ] ...
// A URL may contain commas. Commas at its end do not belong to it; after them no descriptors
// follow. A comma in parentheses belongs to the descriptors.
void CAScanModern::tellSet(char *at, char *end)
{
    while (at != end) {
        at = isInDescriptors() ? skipDescriptors(at, end) : tellImage(at, end);
    }
}

char *CAScanModern::tellImage(char *at, char *end)
{
    if (setState_ == SetState::BeforeUrl && (at = skip(at, end, kBeforeUrl)) == end) {
        return end;
    }
    char *const stop = find(at, end, kSpace);
    char *last = stop;
    while (last != at && last[-1] == ',') {
        --last;
    }
    if (setState_ == SetState::BeforeUrl) {
        tell(at, last, false);
    }
    setState_ = last == stop ? SetState::Descriptors : SetState::BeforeUrl;
    return stop;
}

char *CAScanModern::skipDescriptors(char *at, const char *end)
{
    const bool isInside = setState_ == SetState::Parentheses;
    at = find(at, end, isInside ? kEndsParentheses : kEndsDescriptors);
    if (at == end) {
        return at;
    }
    setState_ = isInside     ? SetState::Descriptors
                : *at == ',' ? SetState::BeforeUrl
                             : SetState::Parentheses;
    return at + 1;
}

// refresh := time ( white space | ";" | "," ) [ "url" "=" ] ( URL | quote URL [ quote ] )
void CAScanModern::tellRefresh(char *at, char *end)
{
    char *const time = skip(at, end, kSpace);
    at = skip(time, end, kTime);
    if (at == time || at == end || !kEndsTime.has(*at)) {
        return;
    }
    at = skip(at, end, kSpace);
    at += at != end && (*at == ';' || *at == ',') ? 1 : 0;
    at = skip(at, end, kSpace);
    if (end - at >= 3 && CAIsWord({at, 3}, "url")) {
        char *const equals = skip(at + 3, end, kSpace);
        at = equals != end && *equals == '=' ? skip(equals + 1, end, kSpace) : at;
    }
    if (at != end && (*at == '"' || *at == '\'')) {
        end = std::find(at + 1, end, *at);
        ++at;
    }
    tell(at, end, false);
}
