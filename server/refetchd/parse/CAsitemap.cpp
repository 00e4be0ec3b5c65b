#include "parse/CAsitemap.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "HTString.h"
#include "url/CAcharset.h"

namespace {

std::string_view withoutBlanksBefore(std::string_view text)
{
    const auto *const begin = std::find_if_not(text.begin(), text.end(), HTIsBlank);
    return text.substr(static_cast<std::size_t>(begin - text.begin()));
}

std::string_view withoutBlanksBehind(std::string_view text)
{
    while (!text.empty() && HTIsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string_view trimmed(std::string_view text)
{
    return withoutBlanksBehind(withoutBlanksBefore(text));
}

}  // namespace

void CASitemapState::stop(std::string why)
{
    if (!isDone) {
        isDone = true;
        fault = std::move(why);
    }
}

bool CASitemapState::countEntry()
{
    if (entries == CASitemapReader::kMostEntries) {
        stop("more than " + std::to_string(entries) + " entries");
        return false;
    }
    ++entries;
    return true;
}

// One form of files.
class CASitemapForm {
public:
    explicit CASitemapForm(CASitemapState *state) : state_(state) {}
    virtual ~CASitemapForm() = default;
    CASitemapForm(const CASitemapForm &) = delete;
    CASitemapForm &operator=(const CASitemapForm &) = delete;

    // Neither is called once the state is done.
    virtual void read(std::string_view bytes) = 0;
    virtual void end(bool isWhole) = 0;

protected:
    CASitemapState *const state_;
};

namespace {

// Splits a text into lines, which may be of any length.
class Lines : public CASitemapForm {
public:
    using CASitemapForm::CASitemapForm;

    void read(std::string_view bytes) final
    {
        while (!bytes.empty() && !state_->isDone) {
            const std::size_t length = std::min(bytes.find('\n'), bytes.size());
            keep(bytes.substr(0, length));
            const bool isWhole = length < bytes.size();
            bytes.remove_prefix(length + (isWhole ? 1 : 0));
            if (isWhole) {
                endLine();
            }
        }
    }
    // A line that was cut off may lack a part of its URL.
    void end(bool isWhole) override
    {
        if (isWhole) {
            endLine();
        }
    }

private:
    static constexpr std::size_t kRoom = CASitemapReader::kLongestValue + 64;

    virtual void line(std::string_view text) = 0;

    // Keeps no more of a line than shows that it is too long.
    void keep(std::string_view part)
    {
        part = line_.empty() ? withoutBlanksBefore(part) : part;
        line_.append(part.substr(0, kRoom - std::min(kRoom, line_.size())));
    }
    void endLine()
    {
        line(trimmed(line_));
        line_.clear();
    }

    std::string line_;
};

// text := { [ URL ] end-of-line }
class TextSitemap : public Lines {
public:
    using Lines::Lines;

    void end(bool isWhole) override
    {
        Lines::end(isWhole);
        if (!isWhole) {
            state_->stop("it is cut off");
        } else if (state_->entries == 0 && state_->tooLong == 0) {
            state_->stop(state_->badUrls == 0 ? "it is empty" : "it is not a sitemap");
            state_->badUrls = 0;
        }
    }

private:
    static bool isUrl(std::string_view text)
    {
        const auto begins = [text](std::string_view scheme) {
            return HTEqualsNoCase(text.substr(0, scheme.size()), scheme);
        };
        return (begins("http://") || begins("https://")) && !HTHasControl(text);
    }
    void line(std::string_view text) override
    {
        if (text.empty()) {
            return;
        }
        if (!isUrl(text)) {
            ++state_->badUrls;
        } else if (text.size() > CASitemapReader::kLongestValue) {
            ++state_->tooLong;
        } else if (state_->countEntry()) {
            entry_.url = text;
            state_->sink->entry(entry_);
        }
    }

    CASitemapEntry entry_;
};

// robots := { [ name ":" value ] [ "#" comment ] end-of-line }
class Robots : public Lines {
public:
    using Lines::Lines;

private:
    void line(std::string_view text) override
    {
        text = text.substr(0, text.find('#'));
        const std::size_t colon = std::min(text.find(':'), text.size());
        if (!HTEqualsNoCase(trimmed(text.substr(0, colon)), "sitemap")) {
            return;
        }
        const std::string_view url = trimmed(text.substr(std::min(colon + 1, text.size())));
        if (url.empty() || url.size() > CASitemapReader::kLongestValue || HTHasControl(url)) {
            return;
        }
        ++state_->entries;
        entry_.isSitemap = true;
        entry_.url = url;
        state_->sink->entry(entry_);
        if (state_->entries == CASitemapReader::kMostRobotsLines) {
            state_->stop("");
        }
    }

    CASitemapEntry entry_;
};

// The kinds of files in XML.
enum class Kind : std::uint8_t { UrlSet, Index, Rss, Rdf, Feed };

// What tells a kind, and where its entries are; names are without their prefix, because many files
// lack the declaration of their namespace.
struct Form {
    std::string_view root;
    std::string_view entry;
    std::size_t depth;  // of its entries; that of the root is 1
    Kind kind;
};
constexpr Form kForms[] = {
    {"urlset", "url", 2, Kind::UrlSet}, {"sitemapindex", "sitemap", 2, Kind::Index},
    {"rss", "item", 3, Kind::Rss},      {"RDF", "item", 2, Kind::Rdf},
    {"feed", "entry", 2, Kind::Feed},
};

// The elements of an entry whose text counts. Of two dates the first kind counts.
enum class Field : std::uint8_t { None, Url, Date, OtherDate, Priority, ChangeFreq, Image };
struct FieldRow {
    std::string_view name;
    Kind kind;
    Field field;
};
constexpr FieldRow kFields[] = {
    {"loc", Kind::UrlSet, Field::Url},
    {"lastmod", Kind::UrlSet, Field::Date},
    {"priority", Kind::UrlSet, Field::Priority},
    {"changefreq", Kind::UrlSet, Field::ChangeFreq},
    {"loc", Kind::Index, Field::Url},
    {"lastmod", Kind::Index, Field::Date},
    {"link", Kind::Rss, Field::Url},
    {"pubDate", Kind::Rss, Field::Date},
    {"date", Kind::Rss, Field::OtherDate},
    {"link", Kind::Rdf, Field::Url},
    {"date", Kind::Rdf, Field::Date},
    {"updated", Kind::Feed, Field::Date},
    {"published", Kind::Feed, Field::OtherDate},
};

// Expat keeps each name of an element or attribute: the memory of a parser is counted, and refused
// beyond a bound. Its functions that allocate are not told for which parser they do; a header in
// front of each block remembers it.
struct alignas(std::max_align_t) BlockHeader {
    std::size_t size;   // with the header
    std::size_t *used;  // the counter of the parser
};

// The counter for what expat allocates in this thread.
thread_local std::size_t *usedByExpat = nullptr;

// Makes `used` that counter for a call into expat.
class ExpatCall {
public:
    explicit ExpatCall(std::size_t *used) : outer_(usedByExpat) { usedByExpat = used; }
    ~ExpatCall() { usedByExpat = outer_; }
    ExpatCall(const ExpatCall &) = delete;
    ExpatCall &operator=(const ExpatCall &) = delete;

private:
    std::size_t *const outer_;
};

BlockHeader *headerOf(void *memory)
{
    return static_cast<BlockHeader *>(memory) - 1;
}

void *resized(BlockHeader *block, std::size_t *used, std::size_t size)
{
    const std::size_t others = *used - (block == nullptr ? 0 : block->size);
    size += sizeof(BlockHeader);
    if (size < sizeof(BlockHeader) || size > CASitemapReader::kMostMemory - others) {
        return nullptr;
    }
    auto *const made = static_cast<BlockHeader *>(std::realloc(block, size));
    if (made == nullptr) {
        return nullptr;
    }
    *used = others + size;
    *made = {size, used};
    return made + 1;
}

void *allocate(std::size_t size)
{
    return resized(nullptr, usedByExpat, size);
}

void *reallocate(void *memory, std::size_t size)
{
    if (memory == nullptr) {
        return allocate(size);
    }
    BlockHeader *const block = headerOf(memory);
    return resized(block, block->used, size);
}

void release(void *memory)
{
    if (memory != nullptr) {
        BlockHeader *const block = headerOf(memory);
        *block->used -= block->size;
        std::free(block);
    }
}

XML_Parser newParser(std::size_t *used)
{
    constexpr XML_Memory_Handling_Suite kFunctions = {allocate, reallocate, release};
    const ExpatCall call(used);
    return XML_ParserCreate_MM(nullptr, &kFunctions, nullptr);
}

class Xml : public CASitemapForm {
public:
    explicit Xml(CASitemapState *state);
    ~Xml() override { XML_ParserFree(parser_); }
    Xml(const Xml &) = delete;
    Xml &operator=(const Xml &) = delete;

    void read(std::string_view bytes) override;
    void end(bool isWhole) override;

private:
    void listen();
    [[nodiscard]] bool parse(std::string_view bytes, bool isLast);
    [[nodiscard]] bool parseFirst(std::string_view bytes);
    [[nodiscard]] std::string place() const;
    [[nodiscard]] std::string reason() const;
    void tellFault();
    void stop(std::string why);

    void begin(std::string_view name, const char **attributes);
    void beginRoot(std::string_view name);
    void beginEntry();
    void beginInEntry(std::string_view name, const char **attributes);
    void beginField(Field field);
    void takeLink(const char **attributes);
    void addLink(std::string_view url);
    void finish();
    void finishEntry();
    void keepValue();
    void text(std::string_view part);
    void skipReference();
    int setEncoding(const char *name, XML_Encoding *encoding);

    std::size_t memory_ = 0;  // that the parser uses
    const XML_Parser parser_;
    bool isFirst_ = true;      // block
    bool isHtml_ = false;      // by its first bytes
    bool isUtf8_ = false;      // under a name that expat does not know
    std::string charset_;      // with several bytes for a character
    bool isUnread_ = false;    // because of a character of that
    bool sawToken_ = false;    // since the last block
    std::size_t pending_ = 0;  // bytes of a token that has not ended
    const Form *form_ = nullptr;
    std::size_t depth_ = 0;
    bool inEntry_ = false;
    bool inImage_ = false;
    Field field_ = Field::None;
    std::size_t fieldDepth_ = 0;
    bool isTooLong_ = false;
    bool isShortened_ = false;  // by a reference
    std::string value_;         // of the field
    std::string otherDate_;
    CASitemapEntry entry_;
};

std::string_view withoutPrefix(std::string_view name)
{
    const std::size_t colon = name.rfind(':');
    return colon == name.npos ? name : name.substr(colon + 1);
}

Xml::Xml(CASitemapState *state) : CASitemapForm(state), parser_(newParser(&memory_))
{
    if (parser_ == nullptr) {
        state_->stop("out of memory");
        return;
    }
    listen();
}

void Xml::listen()
{
    XML_SetUserData(parser_, this);
    XML_SetElementHandler(
        parser_,
        [](void *data, const char *name, const char **attributes) {
            static_cast<Xml *>(data)->begin(withoutPrefix(name), attributes);
        },
        [](void *data, const char * /*name*/) { static_cast<Xml *>(data)->finish(); });
    XML_SetCharacterDataHandler(parser_, [](void *data, const char *part, int length) {
        static_cast<Xml *>(data)->text({part, static_cast<std::size_t>(length)});
    });
    // Called for all other tokens; besides, with it references to entities are not expanded.
    XML_SetDefaultHandler(parser_, [](void *data, const char * /*part*/, int /*length*/) {
        static_cast<Xml *>(data)->sawToken_ = true;
    });
    // An entity of a document type that is elsewhere.
    XML_SetSkippedEntityHandler(parser_,
                                [](void *data, const char * /*name*/, int /*isParameter*/) {
                                    static_cast<Xml *>(data)->skipReference();
                                });
    // Each element costs time for each attribute that is declared for it.
    XML_SetStartDoctypeDeclHandler(
        parser_, [](void *data, const char * /*name*/, const char * /*system*/,
                    const char * /*publicId*/, int hasDeclarations) {
            if (hasDeclarations != 0) {
                static_cast<Xml *>(data)->stop(
                    "it declares its own entities or attributes, which are not read");
            }
        });
    XML_SetUnknownEncodingHandler(
        parser_,
        [](void *data, const char *name, XML_Encoding *encoding) {
            return static_cast<Xml *>(data)->setEncoding(name, encoding);
        },
        this);
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

// For charsets with a byte for each character. Those with more bytes are read as long as they
// contain ASCII alone.
int Xml::setEncoding(const char *name, XML_Encoding *encoding)
{
    const std::unique_ptr<CACharset> charset = CACharset::find(name);
    isUtf8_ = charset != nullptr && charset->isUtf8();
    if (charset == nullptr || isUtf8_) {
        return XML_STATUS_ERROR;
    }
    *encoding = {};
    if (!isWide(*charset)) {
        mapBytes(*charset, encoding);
        return XML_STATUS_OK;
    }
    charset_ = name;
    mapAscii(encoding);
    encoding->data = this;
    encoding->convert = [](void *data, const char * /*bytes*/) {
        static_cast<Xml *>(data)->isUnread_ = true;
        return -1;
    };
    return XML_STATUS_OK;
}

void Xml::stop(std::string why)
{
    state_->stop(std::move(why));
    XML_StopParser(parser_, XML_FALSE);
}

std::string Xml::place() const
{
    return "line " + std::to_string(XML_GetCurrentLineNumber(parser_) + state_->skippedLines) +
           ": ";
}

bool Xml::parse(std::string_view bytes, bool isLast)
{
    const ExpatCall call(&memory_);
    return XML_Parse(parser_, bytes.data(), static_cast<int>(bytes.size()),
                     isLast ? XML_TRUE : XML_FALSE) == XML_STATUS_OK;
}

// A file that declares UTF-8 as "utf8", for example, is begun again: expat reads it itself then.
bool Xml::parseFirst(std::string_view bytes)
{
    const auto begins = [bytes](std::string_view text) {
        return HTEqualsNoCase(bytes.substr(0, text.size()), text);
    };
    isHtml_ = begins("<!doctype html") || begins("<html");
    if (parse(bytes, false)) {
        return true;
    }
    if (!isUtf8_) {
        return false;
    }
    {
        const ExpatCall call(&memory_);
        XML_ParserReset(parser_, "UTF-8");
    }
    listen();
    return parse(bytes, false);
}

void Xml::read(std::string_view bytes)
{
    sawToken_ = false;
    const bool isParsed = isFirst_ ? parseFirst(bytes) : parse(bytes, false);
    isFirst_ = false;
    if (!isParsed) {
        return tellFault();
    }
    pending_ = sawToken_ ? 0 : pending_ + bytes.size();
    if (pending_ > CASitemapReader::kLongestToken) {
        stop(place() + "a tag or comment is longer than " +
             std::to_string(CASitemapReader::kLongestToken) + " bytes");
    }
}

void Xml::end(bool isWhole)
{
    if (parse("", true)) {
        return;
    }
    return isWhole ? tellFault() : state_->stop(place() + "it is cut off here");
}

std::string Xml::reason() const
{
    const XML_Error error = XML_GetErrorCode(parser_);
    if (error == XML_ERROR_NO_MEMORY) {
        return "it needs too much memory";
    }
    if (isUnread_) {
        return "its charset " + charset_ + " is not read";
    }
    constexpr std::string_view kWords = "not well-formed";  // some of expat's texts begin so
    const std::string text = XML_ErrorString(error);
    return (text.starts_with(kWords) ? "" : std::string(kWords) + ": ") + text;
}

// Pages in HTML, such as those for errors, seldom get as far as their root element.
void Xml::tellFault()
{
    const bool isOther =
        form_ == nullptr && (isHtml_ || XML_GetErrorCode(parser_) == XML_ERROR_SYNTAX);
    state_->stop(isOther ? "it is not a sitemap" : place() + reason());
}

void Xml::begin(std::string_view name, const char **attributes)
{
    sawToken_ = true;
    if (state_->isDone) {
        return;
    }
    if (++depth_ > CASitemapReader::kDeepest) {
        stop(place() + "elements are nested more than " +
             std::to_string(CASitemapReader::kDeepest) + " deep");
    } else if (depth_ == 1) {
        beginRoot(name);
    } else if (depth_ == form_->depth && name == form_->entry) {
        beginEntry();
    } else if (inEntry_) {
        beginInEntry(name, attributes);
    }
}

void Xml::beginRoot(std::string_view name)
{
    const auto *const found = std::find_if(std::begin(kForms), std::end(kForms),
                                           [name](const Form &form) { return form.root == name; });
    if (found == std::end(kForms)) {
        stop("it is not a sitemap");
    } else {
        form_ = found;
    }
}

void Xml::beginEntry()
{
    if (!state_->countEntry()) {
        XML_StopParser(parser_, XML_FALSE);
        return;
    }
    inEntry_ = true;
    otherDate_.clear();
    entry_ = {};
    entry_.isSitemap = form_->kind == Kind::Index;
}

void Xml::beginInEntry(std::string_view name, const char **attributes)
{
    if (depth_ == form_->depth + 2) {
        beginField(inImage_ && name == "loc" ? Field::Image : Field::None);
    }
    if (depth_ != form_->depth + 1) {
        return;
    }
    inImage_ = form_->kind == Kind::UrlSet && name == "image" && state_->takesImages;
    if (name == "link" && (form_->kind == Kind::UrlSet || form_->kind == Kind::Feed)) {
        return takeLink(attributes);
    }
    for (const FieldRow &row : kFields) {
        if (row.kind == form_->kind && row.name == name) {
            return beginField(row.field);
        }
    }
}

void Xml::beginField(Field field)
{
    if (field != Field::None) {
        field_ = field;
        fieldDepth_ = depth_;
        value_.clear();
        isTooLong_ = false;
        isShortened_ = false;
    }
}

// In a sitemap an alternate of the entry's URL. In Atom the first one without "rel" or with
// rel="alternate" is the URL itself.
void Xml::takeLink(const char **attributes)
{
    const bool isFeed = form_->kind == Kind::Feed;
    std::string_view rel = isFeed ? "alternate" : "";
    std::string_view href;
    for (; attributes[0] != nullptr; attributes += 2) {
        const std::string_view name = attributes[0];
        if (name == "rel") {
            rel = attributes[1];
        } else if (name == "href") {
            href = trimmed(attributes[1]);
        }
    }
    if (!HTEqualsNoCase(trimmed(rel), "alternate") || href.empty()) {
        return;
    }
    if (href.size() > CASitemapReader::kLongestValue) {
        ++state_->tooLong;
    } else if (HTHasControl(href)) {
        ++state_->badUrls;
    } else if (isFeed && entry_.url.empty()) {
        entry_.url = href;
    } else {
        addLink(href);
    }
}

void Xml::addLink(std::string_view url)
{
    if (entry_.links.size() < CASitemapReader::kMostLinks) {
        entry_.links.emplace_back(url);
    } else {
        ++state_->moreLinks;
    }
}

void Xml::text(std::string_view part)
{
    sawToken_ = true;
    if (field_ == Field::None || depth_ != fieldDepth_ || state_->isDone) {
        return;
    }
    part = value_.empty() ? withoutBlanksBefore(part) : part;
    const std::size_t room = CASitemapReader::kLongestValue - value_.size();
    isTooLong_ = isTooLong_ || withoutBlanksBehind(part).size() > room;
    value_.append(part.substr(0, room));
}

void Xml::skipReference()
{
    sawToken_ = true;
    isShortened_ = isShortened_ || (field_ != Field::None && depth_ == fieldDepth_);
}

void Xml::finish()
{
    sawToken_ = true;
    if (state_->isDone) {
        return;
    }
    if (field_ != Field::None && depth_ == fieldDepth_) {
        keepValue();
        field_ = Field::None;
    }
    if (inEntry_ && depth_ == form_->depth) {
        finishEntry();
    }
    --depth_;
}

void Xml::finishEntry()
{
    inEntry_ = false;
    entry_.date = entry_.date.empty() ? otherDate_ : entry_.date;
    const std::size_t own = entry_.url.empty() ? 0 : 1;
    const std::size_t room = CASitemapReader::kMostUrls - state_->urls;
    const bool isTooMuch = own + entry_.links.size() > room;
    entry_.links.resize(std::min(entry_.links.size(), room - std::min(room, own)));
    if (own <= room && own + entry_.links.size() > 0) {
        state_->urls += own + entry_.links.size();
        state_->sink->entry(entry_);
    }
    if (isTooMuch) {
        stop("more than 200,000 URLs");
    }
}

// The first text counts: some feeds put an empty element of the same name, but with another prefix,
// beside it.
void Xml::keepValue()
{
    const auto keepFirst = [this](std::string *target) {
        if (target->empty()) {
            *target = trimmed(value_);
        }
    };
    const bool isUrl = field_ == Field::Url || field_ == Field::Image;
    if (isTooLong_) {
        state_->tooLong += isUrl ? 1 : 0;
        return;
    }
    if (isShortened_ || (isUrl && HTHasControl(trimmed(value_)))) {
        state_->badUrls += isUrl ? 1 : 0;
        return;
    }
    switch (field_) {
    case Field::Url: return keepFirst(&entry_.url);
    case Field::Date: return keepFirst(&entry_.date);
    case Field::OtherDate: return keepFirst(&otherDate_);
    case Field::Priority: return keepFirst(&entry_.priority);
    case Field::ChangeFreq: return keepFirst(&entry_.changefreq);
    case Field::Image: return value_.empty() ? void() : addLink(trimmed(value_));
    case Field::None: break;
    }
}

}  // namespace

CASitemapReader::CASitemapReader(CASitemapSink *sink, Body body, bool takesImages)
    : body_(body), state_{.sink = sink, .takesImages = takesImages}
{
}

CASitemapReader::~CASitemapReader() = default;

void CASitemapReader::read(std::string_view bytes)
{
    const std::size_t most = body_ == Body::Robots ? kMostOfRobots : kMostBytes;
    const bool isTooMuch = bytes.size() > most - seen_;
    bytes = bytes.substr(0, most - seen_);
    seen_ += bytes.size();
    while (!bytes.empty() && !isDone()) {
        const std::size_t length = std::min(bytes.size(), kBlock - block_.size());
        block_.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
        if (block_.size() == kBlock) {
            flush();
        }
    }
    if (isTooMuch && !isDone()) {
        flush();
        const bool isFault = body_ == Body::Sitemap;
        state_.stop(isFault ? "it is longer than " + std::to_string(most) + " bytes" : "");
    }
}

void CASitemapReader::flush()
{
    if (form_ == nullptr) {
        chooseForm();
    }
    if (form_ != nullptr && !isDone()) {
        form_->read(block_);
    }
    block_.clear();
}

// XML begins with "<", if not in UTF-16. Blanks and empty lines before that, as faulty plug-ins of
// sites write them, are skipped: a parser of XML would refuse the file.
void CASitemapReader::chooseForm()
{
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    std::string_view start(block_);
    start.remove_prefix(start.starts_with(kMark) ? kMark.size() : 0);
    const auto *const first = std::find_if_not(start.begin(), start.end(), HTIsBlank);
    state_.skippedLines += static_cast<std::size_t>(std::count(start.begin(), first, '\n'));
    start.remove_prefix(static_cast<std::size_t>(first - start.begin()));
    if (start.empty()) {
        return;
    }
    constexpr std::string_view kXml("<\xFE\xFF\0", 4);
    if (body_ == Body::Robots) {
        form_ = std::make_unique<Robots>(&state_);
    } else if (kXml.find(start.front()) != kXml.npos) {
        form_ = std::make_unique<Xml>(&state_);
    } else {
        form_ = std::make_unique<TextSitemap>(&state_);
    }
    block_.erase(0, block_.size() - start.size());
}

void CASitemapReader::end(bool isWhole)
{
    if (isDone()) {
        return;
    }
    flush();
    if (form_ == nullptr && body_ == Body::Sitemap) {
        state_.stop(isWhole ? "it is empty" : "it is cut off");
    } else if (form_ != nullptr && !isDone()) {
        form_->end(isWhole);
    }
    state_.isDone = true;
}
