#include "base/CAoutcome.h"

namespace {

// In the order of the values.
constexpr std::array<std::string_view, kDrops> kDropNames = {
    "none",      "delvedepth",  "ignoreurl",     "onlyurl", "cachequeries", "delveacrosshosts",
    "processed", "maxhosturls", "maxqueuedepth", "maxurls",
};
static_assert(kDropNames[static_cast<std::size_t>(CADrop::MaxUrls)] == "maxurls");

constexpr std::array<std::string_view, kFailures> kFailureTexts = {
    "none",
    "unknown host name",
    "no connection",
    "certificate",
    "TLS handshake failed",
    "no valid request",
    "connection broke while sending",
    "connection closed before an answer",
    "connection reset before an answer",
    "timed out",
    "no HTTP response",
    "longer than maxanswer",
    "slower than answertimeout",
    "run was over",
};
static_assert(kFailureTexts[static_cast<std::size_t>(CAFailure::Stopped)] == "run was over");

constexpr std::array<std::string_view, kVerdicts> kVerdictNames = {
    "refreshed",     "stored",  "unchanged", "served from cache",
    "not cacheable", "unknown", "failed",    "dropped",
};
static_assert(kVerdictNames[static_cast<std::size_t>(CAVerdict::Dropped)] == "dropped");

}  // namespace

std::string_view CADropName(CADrop drop)
{
    return kDropNames[static_cast<std::size_t>(drop)];
}

std::string_view CAFailureText(CAFailure failure)
{
    return kFailureTexts[static_cast<std::size_t>(failure)];
}

std::string_view CAVerdictName(CAVerdict verdict)
{
    return kVerdictNames[static_cast<std::size_t>(verdict)];
}
