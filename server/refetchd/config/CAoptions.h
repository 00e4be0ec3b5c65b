// What the parsers of a response do beyond their fixed manner: each is a directive that is off
// unless it is set.
#pragma once

struct CAParseOptions {
    bool closeDelimitedBodies = false;  // a body without a length ends with the connection
    bool followAllRedirects = false;    // 301, 303, 307 and 308 lead on as 302 does
    bool modernLinks = false;           // links are found as browsers find them
    bool keepMoreHeaders = false;       // those that tell of the cache and of pauses, too
};
