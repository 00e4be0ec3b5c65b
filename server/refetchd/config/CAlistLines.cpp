#include "config/CAlistLines.h"

#include <algorithm>

#include "HTString.h"

namespace {

constexpr std::string_view kMark = "\xef\xbb\xbf";

// The next byte, or EOF. No other thread reads the file, so its lock is not needed.
int nextByte(FILE *file)
{
    return getc_unlocked(file);  // NOLINT(concurrency-mt-unsafe): see above
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

// Reads the next line without its line feed. Of a line that is too long its beginning is kept,
// which shows whether it is a comment.
//
// Both pointers are local: a byte that is stored through a member could change the other members,
// so the compiler would read them again for each byte.
bool CAListLines::readLine()
{
    FILE *const file = file_;
    char *const begin = line_.data();
    char *const end = begin + line_.size();
    char *out = begin;
    int c = nextByte(file);
    const bool isThere = c != EOF;
    for (; c != EOF && c != '\n'; c = nextByte(file)) {
        if (out != end) {
            *out++ = static_cast<char>(c);
        }
    }
    number_ += isThere ? 1 : 0;
    url_ = {begin, static_cast<std::size_t>(out - begin)};
    return isThere && std::ferror(file) == 0;
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
    const bool isOdd = HTHasControl(url_) || url_.find(' ') != url_.npos;
    return isOdd ? "contains a blank or a control character" : nullptr;
}
