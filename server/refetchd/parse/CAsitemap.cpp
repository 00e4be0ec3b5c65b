#include "parse/CAsitemap.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "HTString.h"
#include "parse/CAsitemapForm.h"

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
        form_ = CANewRobots(&state_);
    } else if (kXml.find(start.front()) != kXml.npos) {
        form_ = CANewXmlSitemap(&state_);
    } else {
        form_ = CANewTextSitemap(&state_);
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
