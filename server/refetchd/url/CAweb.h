// Resolves the links of pages as browsers do, by the URL Standard of the WHATWG, as far as it
// concerns schemes that a proxy can fetch: http, https and ftp. All calls are for any thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "HTMemory.h"

class CACharset;

// A URL in three parts. Each is empty when it is missing.
struct CAURLParts {
    std::string_view protocol = {};  // without ":"
    std::string_view host = {};      // with ":port" unless that is the default
    std::string_view path = {};      // with the query, without the fragment
};

// Why a link leads to no URL.
enum class CAWebFault : std::uint8_t {
    None,
    OtherScheme,  // one that the proxy cannot fetch, such as "mailto:"
    Invalid,      // such as "http://a b/" or "http://h:99999/"; browsers request nothing either
    NoMemory,
};

struct CAWebResult {
    CAWebFault fault = CAWebFault::None;
    CAURLParts parts = {};  // in the pool or in `base`, without a NUL; empty after a fault
};

// Resolves `link`, in UTF-8, against `base`, a result of this function. An empty host in `base`
// gives a URL without one for a link that names none, and an empty protocol stands for http.
//
// The path of the result begins with "/" and is printable ASCII, as is the host; user name,
// password and fragment are left out, because they are no part of a request. In the path, bytes
// that are not UTF-8 are percent-encoded like others beyond ASCII; in the host they are a fault.
// Browsers write the query in the charset of the page: `charset`, or UTF-8 for null.
[[nodiscard]] CAWebResult CAResolveWeb(std::string_view link, const CAURLParts &base, HTPool *pool,
                                       const CACharset *charset = nullptr);
