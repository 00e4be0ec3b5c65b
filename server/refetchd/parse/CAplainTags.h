// Passes the parts of a page that hold no link, many bytes at once.
#pragma once

// Passes text and tags that hold no link by CAFindModernTag(), in [at, end), from outside of a tag
// on. Returns where a "<" is that is the begin of anything else, or of a tag that is not easily
// passed, such as one that does not end in the block; `end` if there is none.
[[nodiscard]] const char *CAPassPlainTags(const char *at, const char *end);
