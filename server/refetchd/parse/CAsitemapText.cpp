#include <algorithm>
#include <cstddef>
#include <string>

#include "HTString.h"
#include "parse/CAsitemapForm.h"

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
        part = line_.empty() ? HTWithoutBlanksBefore(part) : part;
        line_.append(part.substr(0, kRoom - std::min(kRoom, line_.size())));
    }
    void endLine()
    {
        line(HTWithoutBlanks(line_));
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
        if (!HTEqualsNoCase(HTWithoutBlanks(text.substr(0, colon)), "sitemap")) {
            return;
        }
        const std::string_view url = HTWithoutBlanks(text.substr(std::min(colon + 1, text.size())));
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

}  // namespace

std::unique_ptr<CASitemapForm> CANewTextSitemap(CASitemapState *state)
{
    return std::make_unique<TextSitemap>(state);
}

std::unique_ptr<CASitemapForm> CANewRobots(CASitemapState *state)
{
    return std::make_unique<Robots>(state);
}
