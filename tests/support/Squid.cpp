#include "Squid.h"

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <stdexcept>

#include "ScriptedPeer.h"

namespace {

constexpr int kStartAttempts = 300;

// A port that was free a moment ago.
std::uint16_t freePort()
{
    const ScriptedPeer peer;
    return peer.port();
}

std::string configuration(const std::string &dir, std::uint16_t port)
{
    return "http_port 127.0.0.1:" + std::to_string(port) +
           "\nhttp_access allow localhost\nhttp_access deny all\n"
           "visible_hostname squid.test\ncache_mem 16 MB\nmemory_cache_shared off\n"
           "max_filedescriptors 1024\npinger_enable off\nnetdb_filename none\n"
           "shutdown_lifetime 0 seconds\npid_filename " +
           dir + "/squid.pid\ncache_log " + dir + "/cache.log\naccess_log stdio:" + dir +
           "/access.log\ncoredump_dir " + dir + "\n";
}

}  // namespace

Squid::Squid() : port_(freePort())
{
    const std::string file = dir_.write("squid.conf", configuration(dir_.path(), port_));
    // Started by root, Squid changes to this user; the directory becomes its own.
    const passwd *const user = getpwnam("proxy");
    if (geteuid() == 0 && user != nullptr &&
        chown(dir_.path().c_str(), user->pw_uid, user->pw_gid) != 0) {
        throw std::runtime_error("cannot give " + dir_.path() + " to Squid's user");
    }
    process_ =
        std::make_unique<Process>(std::vector<std::string>{"/usr/sbin/squid", "-N", "-f", file});
    for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
        if (!exchange(port_, "GET / HTTP/1.0\r\n\r\n", Millis(1000)).empty()) {
            return;
        }
        usleep(100000);
    }
    throw std::runtime_error("Squid does not answer:\n" + process_->err() + dir_.read("cache.log"));
}

Squid::~Squid()
{
    process_->signal(SIGTERM);
    process_->wait(Millis(10000));
}

std::string Squid::get(const std::string &url) const
{
    return exchange(port_, "GET " + url + " HTTP/1.0\r\nUser-Agent: ordinary\r\n\r\n",
                    Millis(10000));
}
