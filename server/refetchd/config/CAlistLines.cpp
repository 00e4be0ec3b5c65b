#include "config/CAlistLines.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "HTString.h"

namespace {

constexpr std::string_view kMark = "\xef\xbb\xbf";

// 16 bytes that are compared at once; compilers take the machine's widest instructions for them.
using Bytes = std::uint8_t __attribute__((vector_size(16)));

// True when one of the 16 bytes from `from` is a blank or a control character.
bool hasOdd(const char *from)
{
    constexpr std::uint8_t kDelete = 127;
    Bytes bytes;
    std::memcpy(&bytes, from, sizeof(bytes));
    const auto marks = (bytes <= ' ') | (bytes == kDelete);
    std::array<std::uint64_t, 2> words{};
    std::memcpy(words.data(), &marks, sizeof(words));
    return (words[0] | words[1]) != 0;
}

bool hasOdd(std::string_view text)
{
    if (text.size() < sizeof(Bytes)) {
        return HTHasControl(text) || text.find(' ') != text.npos;
    }
    const char *const last = text.data() + text.size() - sizeof(Bytes);
    for (const char *at = text.data(); at < last; at += sizeof(Bytes)) {
        if (hasOdd(at)) {
            return true;
        }
    }
    return hasOdd(last);
}

// Skips what is left of a line; false when it cannot be read.
bool skipRest(FILE *file)
{
    int c = 0;
    do {
        // No other thread reads the file, so its lock is not needed.
        c = getc_unlocked(file);  // NOLINT(concurrency-mt-unsafe): see above
    } while (c != EOF && c != '\n');
    return std::ferror(file) == 0;
}

}  // namespace

bool CAListLines::next()
{
    while (readLine()) {
        trim();
        if (!url_.empty() && url_.front() != '#') {
            return true;
        }
    }
    return false;
}

CAListLines::CAListLines(FILE *file) : file_(file)
{
    line_.fill('\n');
}

// Reads the next line without its line feed. Of a line that is too long its beginning is kept,
// which shows whether it is a comment.
bool CAListLines::readLine()
{
    std::fill_n(line_.begin(), std::min(kept_ + 2, line_.size()), '\n');
    if (std::fgets(line_.data(), static_cast<int>(line_.size()), file_) == nullptr) {
        return false;
    }
    ++number_;
    kept_ = readLength();
    url_ = {line_.data(), kept_};
    return kept_ + 1 < line_.size() || skipRest(file_);
}

// What fgets() has put into the array. It does not tell, and there may be NULs among it; but the
// array was full of line feeds before, so the first one shows: it is either the end of the line,
// with a NUL behind it, or the byte behind that NUL, when the file ends without a line feed. When
// there is none the array is full.
std::size_t CAListLines::readLength() const
{
    const std::size_t feed = std::string_view(line_.data(), line_.size()).find('\n');
    if (feed == std::string_view::npos) {
        return line_.size() - 1;
    }
    return feed + 1 < line_.size() && line_[feed + 1] == '\0' ? feed : feed - 1;
}

void CAListLines::trim()
{
    if (number_ == 1 && url_.starts_with(kMark)) {
        url_.remove_prefix(kMark.size());
    }
    if (url_.ends_with('\r')) {
        url_.remove_suffix(1);
    }
    isTooLong_ = url_.size() > kMaxUrl;
    url_.remove_prefix(std::min(url_.find_first_not_of(" \t"), url_.size()));
    url_ = url_.substr(0, url_.find_last_not_of(" \t") + 1);
    if (!isTooLong_) {
        line_[static_cast<std::size_t>(url_.data() - line_.data()) + url_.size()] = '\0';
    }
}

const char *CAListLines::fault() const
{
    if (isTooLong_) {
        return "is longer than 4095 bytes";
    }
    return hasOdd(url_) ? "contains a blank or a control character" : nullptr;
}
