#include "parse/CApageCharset.h"

#include <utility>

#include "base/CAtrace.h"

namespace {

constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr std::size_t kSeen = kMark.size();

}  // namespace

void CAPageCharset::declare(Source source, std::string_view label)
{
    if (source <= source_) {
        return;
    }
    std::unique_ptr<const CACharset> charset = CACharset::find(label);
    if (charset == nullptr) {
        return;
    }
    CATrace("HTML........ parser reading links in charset \"%.*s\".\n", CALength(label),
            label.data());
    source_ = source;
    declared_ = std::move(charset);
}

bool CAPageCharset::hasSeenBegin() const
{
    return markLength_ == kSeen;
}

void CAPageCharset::seeBegin(const char *data, const char *end)
{
    for (; data != end && !hasSeenBegin(); ++data) {
        if (*data != kMark[markLength_]) {
            markLength_ = kSeen;
        } else if (++markLength_ == kSeen) {
            declare(Source::ByteOrderMark, "utf-8");
        }
    }
}

void CAPageCharset::takeAscii()
{
    ofQuery_ = declared_ == nullptr || declared_->isUtf8() ? nullptr : declared_.get();
}

void CAPageCharset::toUtf8(char **at, char **end)
{
    const std::string_view text(*at, static_cast<std::size_t>(*end - *at));
    takeAscii();
    if (CAIsAscii(text) || (ofQuery_ == nullptr && CAIsUtf8(text))) {
        return;
    }
    const CACharset *charset = declared_.get();
    if (charset == nullptr) {
        if (windows1252_ == nullptr) {
            windows1252_ = CACharset::find("windows-1252");
        }
        ofQuery_ = charset = windows1252_.get();
    }
    if (charset == nullptr) {
        return;  // ICU has no memory
    }
    text_ = charset->toUtf8(text);
    *at = text_.data();
    *end = *at + text_.size();
}
