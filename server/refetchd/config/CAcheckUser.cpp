#include "config/CAcheckUser.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "HTFile.h"
#include "HTString.h"
#include "config/CAcfg.h"

namespace {

constexpr const char *kServiceUser = "refetchd";
constexpr const char *kServiceLocale = "en_US";  // as a directory in the path of the report

// The configuration of the nightly service, or of an instance. A path that leads out of a directory
// again may be any file's.
bool isOfService(const char *name)
{
    const HeapString path(HTMakeAbsolutePath(name));
    const std::string_view file = path != nullptr ? path.get() : "";
    return file == "/etc/tarnproxy.conf" ||
           (file.starts_with("/etc/refetchd/") && file.ends_with(".conf") &&
            file.find("/../") == file.npos);
}

// True when the process is this user, and has no rights but the user's, from now on.
bool become(const passwd &user)
{
    return initgroups(user.pw_name, user.pw_gid) == 0 && setgid(user.pw_gid) == 0 &&
           setuid(user.pw_uid) == 0;
}

}  // namespace

CAJudge CAChooseJudge(const std::vector<const char *> &files)
{
    const passwd *const user = getpwnam(kServiceUser);  // NOLINT(concurrency-mt-unsafe): no threads
    if (user == nullptr || !std::all_of(files.begin(), files.end(), isOfService)) {
        return CAJudge::Caller;
    }
    if (geteuid() != 0) {
        return geteuid() == user->pw_uid ? CAJudge::Service : CAJudge::Caller;
    }
    if (!become(*user)) {
        std::fprintf(stderr, "refetchd-check: judging as root, not as %s: %s\n", kServiceUser,
                     std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): likewise
        return CAJudge::Caller;
    }
    std::snprintf(refetchd_LocaleString, sizeof(refetchd_LocaleString), "%s", kServiceLocale);
    return CAJudge::AsService;
}
