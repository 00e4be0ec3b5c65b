#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

#include "HTString.h"
#include "parse/CAexpat.h"
#include "parse/CAsitemapForm.h"

namespace {

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

    CAExpatMemory memory_{.most = CASitemapReader::kMostMemory};
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

Xml::Xml(CASitemapState *state) : CASitemapForm(state), parser_(CANewExpatParser(&memory_))
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

// Charsets with several bytes for a character are read as long as a file contains ASCII alone.
int Xml::setEncoding(const char *name, XML_Encoding *encoding)
{
    const CAExpatCharset charset = CAMapCharset(name, encoding);
    isUtf8_ = charset == CAExpatCharset::Utf8;
    if (charset == CAExpatCharset::Wide) {
        charset_ = name;
        encoding->data = this;
        encoding->convert = [](void *data, const char * /*bytes*/) {
            static_cast<Xml *>(data)->isUnread_ = true;
            return -1;
        };
    }
    return charset == CAExpatCharset::Unknown || isUtf8_ ? XML_STATUS_ERROR : XML_STATUS_OK;
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
    const CAExpatCall call(&memory_);
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
        const CAExpatCall call(&memory_);
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
            href = HTWithoutBlanks(attributes[1]);
        }
    }
    if (!HTEqualsNoCase(HTWithoutBlanks(rel), "alternate") || href.empty()) {
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
    part = value_.empty() ? HTWithoutBlanksBefore(part) : part;
    const std::size_t room = CASitemapReader::kLongestValue - value_.size();
    isTooLong_ = isTooLong_ || HTWithoutBlanksBehind(part).size() > room;
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
            *target = HTWithoutBlanks(value_);
        }
    };
    const bool isUrl = field_ == Field::Url || field_ == Field::Image;
    if (isTooLong_) {
        state_->tooLong += isUrl ? 1 : 0;
        return;
    }
    if (isShortened_ || (isUrl && HTHasControl(HTWithoutBlanks(value_)))) {
        state_->badUrls += isUrl ? 1 : 0;
        return;
    }
    switch (field_) {
    case Field::Url: return keepFirst(&entry_.url);
    case Field::Date: return keepFirst(&entry_.date);
    case Field::OtherDate: return keepFirst(&otherDate_);
    case Field::Priority: return keepFirst(&entry_.priority);
    case Field::ChangeFreq: return keepFirst(&entry_.changefreq);
    case Field::Image: return value_.empty() ? void() : addLink(HTWithoutBlanks(value_));
    case Field::None: break;
    }
}

}  // namespace

std::unique_ptr<CASitemapForm> CANewXmlSitemap(CASitemapState *state)
{
    return std::make_unique<Xml>(state);
}
