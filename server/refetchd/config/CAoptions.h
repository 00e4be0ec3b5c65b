// Optional behaviour of the parsers. Each option is off unless a directive switches it on.
#pragma once

struct CAParseOptions {
    bool closeDelimitedBodies = false;  // read bodies that end with the connection
    bool followAllRedirects = false;    // follow 301, 303, 307 and 308 as well as 302
    bool modernLinks = false;           // find links as browsers find them
    bool keepMoreHeaders = false;       // keep the headers about the cache and about pauses
    bool http11 = false;                // speak HTTP/1.1
    bool takesNothing = false;          // only read the response: no links, redirects and copies
};
