// The files of recipes/ in real servers: with its recipe each server fetches anew what the agent
// asks for, stores it, and does so for the agent only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <iterator>

#include "Agent.h"
#include "Site.h"

namespace {

using Words = std::vector<std::string>;

// The least that a server needs to run in a directory of its own; fill() says what "@" stands for.
struct Server : Row {
    bool reverse;
    bool refreshesByItself;  // without the recipe
    bool agentOnly;          // with the recipe
    const char *recipe;
    const char *instead;  // what it takes to be a proxy without the recipe
    const char *command;
    const char *files;  // each is "%name", a line end and its text
    Words exceptions;   // what the last test says of its pages
};

const Server kServers[] = {
    Server({"Squid"}, false, true, false, "squid.conf", "http_access allow localhost",
           "/usr/sbin/squid -N -f @dir@/main",
           "%main\nhttp_port 127.0.0.1:@port@\ninclude @recipe@\nacl other src 127.0.0.2\n"
           "http_access allow other\nhttp_access deny all\nvisible_hostname squid.test\n"
           "cache_mem 16 MB\nmemory_cache_shared off\nmax_filedescriptors 1024\npinger_enable off\n"
           "netdb_filename none\nshutdown_lifetime 0 seconds\npid_filename none\n"
           "cache_log @dir@/log\naccess_log none\ncoredump_dir @dir@\n",
           {"old /immutable", "old /immutable gzip", "old /vary gzip"}),
    Server({"TrafficServer"}, false, false, true, "trafficserver.config", "",
           "/usr/bin/traffic_server --run-root=@dir@/main",
           "%main\n{prefix: @dir@, bindir: /usr/bin, libexecdir: /usr/lib/trafficserver/modules,\n"
           "sysconfdir: @dir@, runtimedir: @dir@, logdir: @dir@}\n%storage.config\n@dir@ 32M\n"
           "%plugin.config\nheader_rewrite.so @recipe@\n%ip_allow.yaml\nip_allow: [{apply: in,\n"
           "ip_addrs: 127.0.0.0/8, action: allow, methods: ALL}]\n"
           "%records.config\nCONFIG proxy.config.http.server_ports STRING @port@:ip-in=127.0.0.1\n"
           "CONFIG proxy.config.http.wait_for_cache INT 1\n"
           "CONFIG proxy.config.url_remap.remap_required INT 0\n"
           "CONFIG proxy.config.reverse_proxy.enabled INT 0\n"
           "CONFIG proxy.config.crash_log_helper STRING NULL\n"
           "CONFIG proxy.config.admin.user_id STRING #-1\n",
           {"old /vary gzip"}),
    Server(
        {"Apache"}, false, true, true, "apache2-forward.conf",
        "ProxyRequests On\nCacheEnable disk http://*:\nCacheHeader on\n",
        "/usr/sbin/apache2 -X -f @dir@/main",
        "%main\nServerRoot /usr/lib/apache2\nLoadModule mpm_event_module modules/mod_mpm_event.so\n"
        "LoadModule authz_core_module modules/mod_authz_core.so\n"
        "LoadModule authz_host_module modules/mod_authz_host.so\n"
        "LoadModule proxy_module modules/mod_proxy.so\n"
        "LoadModule proxy_http_module modules/mod_proxy_http.so\n"
        "LoadModule cache_module modules/mod_cache.so\n"
        "LoadModule cache_disk_module modules/mod_cache_disk.so\n"
        "LoadModule headers_module modules/mod_headers.so\nServerName apache.test\n"
        "Listen 127.0.0.1:@port@\nUser nobody\nGroup nogroup\nPidFile @dir@/pid\n"
        "ErrorLog @dir@/log\nDefaultRuntimeDir @dir@\nCacheRoot @dir@\nInclude @recipe@\n"
        "<VirtualHost *>\n</VirtualHost>\n",
        {"old /vary gzip"}),
    Server({"Nginx"}, true, false, true, "nginx.conf",
           "add_header X-Cache $upstream_cache_status always;\n",
           "/usr/sbin/nginx -p @dir@ -e @dir@/log -c main",
           "%main\ndaemon off; master_process off; pid pid;\nevents {}\nhttp {\naccess_log off;\n"
           "client_body_temp_path b; fastcgi_temp_path f; scgi_temp_path s; uwsgi_temp_path u;\n"
           "proxy_temp_path p; proxy_cache_path cache keys_zone=site:1m;\ninclude @recipe@;\n"
           "server { listen 127.0.0.1:@port@; location / { proxy_pass http://127.0.0.1:@origin@;\n"
           "proxy_set_header Host $host; proxy_cache site; } }\n}\n",
           {"no /cookie", "no /cookie gzip", "old /vary gzip"}),
    Server({"Varnish"}, true, false, true, "varnish.vcl", "",
           "/usr/sbin/varnishd -F -j none -n @dir@/work -a 127.0.0.1:@port@ "
           "-f @dir@/main -s malloc,16M",
           "%main\nvcl 4.1;\nbackend site { .host = \"127.0.0.1\"; .port = \"@origin@\"; }\n"
           "include \"@recipe@\";\n",
           {"no /cookie", "no /cookie gzip"}),
};

Words split(const std::string &text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

std::string now()
{
    const std::time_t time = std::time(nullptr);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %T GMT", std::gmtime(&time));
    return text;
}

// An origin whose pages tell their edition and are fresh for an hour, and the server before it.
class Servers : public testing::TestWithParam<Server> {
protected:
    void TearDown() override
    {
        process_->signal(SIGTERM);
        EXPECT_NE(process_->wait(Millis(10000)).signal, SIGKILL) << "had to be killed";
    }

    void start(const std::string &recipe = std::string(SOURCE_DIRECTORY "/recipes/") +
                                           GetParam().recipe)
    {
        // Some change to a user of their own when root starts them, who must be able to write here.
        std::filesystem::permissions(dir_.path(), std::filesystem::perms::all);
        std::istringstream files(fill(GetParam().files, recipe));
        files.ignore();
        for (std::string name, text; std::getline(files, name) && std::getline(files, text, '%');) {
            dir_.write(name, text);
        }
        process_ = std::make_unique<Process>(split(fill(GetParam().command, recipe)));
        ASSERT_THAT(get("/first"), testing::HasSubstr("edition 1"))
            << process_->err() << dir_.read("log");
    }

    // `text` with a value for each "@name@".
    [[nodiscard]] std::string fill(std::string text, const std::string &recipe) const
    {
        const std::map<std::string, std::string> values = {
            {"@dir@", dir_.path()},
            {"@recipe@", recipe},
            {"@port@", std::to_string(port_)},
            {"@origin@", std::to_string(origin_.port())}};
        for (const auto &[name, value] : values) {
            for (std::size_t at = 0; (at = text.find(name)) != std::string::npos;) {
                text.replace(at, name.size(), value);
            }
        }
        return text;
    }

    // Asks as an ordinary client, which waits for the server's start; the whole response.
    std::string get(const std::string &path, const Words &options = {}) const
    {
        Words words =
            split("no_proxy= NO_PROXY= curl -qsi --retry-connrefused --retry 30 --retry-delay 1 " +
                  std::string(GetParam().reverse ? "--noproxy * --connect-to ::" : "-x ") +
                  "127.0.0.1:" + std::to_string(port_));
        words.insert(words.end(), options.begin(), options.end());
        words.push_back(site_ + path);
        Process client(words);
        client.wait(Millis(40000));
        return client.out();
    }
    // What such a client gets from the cache, "edition N" or all that is wrong; "asked" when the
    // origin was.
    [[nodiscard]] std::string cached(const std::string &path, const Words &options = {}) const
    {
        const std::size_t before = origin_.requests().size();
        const std::string response = get(path, options);
        if (origin_.requests().size() != before) {
            return "asked";
        }
        return response.ends_with("end of " + path) ? response.substr(response.find("edition "), 9)
                                                    : response;
    }
    // Runs the agent; the number of requests that reach the origin then.
    std::size_t refresh(const Words &paths, const std::string &depth = "1")
    {
        const std::size_t before = origin_.requests().size();
        std::string directives = GetParam().reverse ? "transparentproxy on; " : "";
        for (const std::string &path : paths) {
            directives += "loadurl " + site_ + path + "; ";
        }
        Agent agent(port_, directives + "resultslog @dir@/log; delvedepth " + depth);
        agent.run();
        saidToBeIgnored_ = agent.traced("the proxy ignores max-age=0") > 0;
        return origin_.requests().size() - before;
    }

    Reply page(const std::string &target) const
    {
        const std::string more = target == "/immutable" ? ", immutable"
                                 : target == "/aged"    ? "\r\nAge: 100"
                                 : target == "/cookie"  ? "\r\nSet-Cookie: a=b"
                                 : target == "/vary"    ? "\r\nVary: Accept-Encoding"
                                                        : "";
        Reply reply =
            htmlPage("edition " + std::to_string(edition_) + "<a href=\"relative\"><a href=\"" +
                     site_ + "/absolute\">" + std::string(20000, '.') + "end of " + target);
        std::string &bytes = reply.pieces.front().bytes;
        bytes.insert(bytes.find("\r\n"),
                     "\r\nDate: " + date_ + "\r\nCache-Control: max-age=3600" + more);
        return reply;
    }

    const TempDir dir_;
    const std::string date_ = now();
    std::atomic<int> edition_ = 1;  // 0: the origin is in trouble
    const ScriptedPeer origin_{[this](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        return edition_ == 0
                   ? Reply{{{"HTTP/1.0 503 No\r\nContent-Length: 0\r\n\r\n"}}, Reply::Then::Close}
                   : page(request.target);
    }};
    const std::uint16_t port_ = ScriptedPeer().port();  // free a moment ago
    const std::string site_ =
        "http://" + (GetParam().reverse ? "www.site.test" : origin_.address());
    std::unique_ptr<Process> process_;
    bool saidToBeIgnored_ = false;  // in the agent's last run
};

INSTANTIATE_TEST_SUITE_P(Recipe, Servers, testing::ValuesIn(kServers), rowName);

TEST_P(Servers, EveryPageIsRefreshedAndForTheAgentOnly)
{
    const Words pages = {"/", "/relative", "/absolute"};
    const auto expectCached = [&](const std::string &edition) {
        for (const std::string &path : pages) {
            EXPECT_EQ(cached(path), edition) << path;
        }
    };
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_EQ(cached("/first"), "edition 1");
    edition_ = 2;
    EXPECT_EQ(cached("/first", {"--interface", "127.0.0.2", "-H", "Cache-Control: max-age=0"}),
              GetParam().agentOnly ? "edition 1" : "asked");

    EXPECT_EQ(refresh({"/"}), pages.size());  // nothing in the cache
    expectCached("edition 2");
    edition_ = 3;
    expectCached("edition 2");  // still fresh
    EXPECT_EQ(refresh({"/"}), pages.size());
    expectCached("edition 3");
    edition_ = 0;
    EXPECT_GE(refresh(pages), pages.size());
    expectCached("edition 3");  // trouble does not take the place of a good copy
}

TEST_P(Servers, OnlySomeRefreshWithoutTheRecipe)
{
    ASSERT_NO_FATAL_FAILURE(start(dir_.write("instead", GetParam().instead)));
    get("/aged");
    edition_ = 2;
    refresh({"/aged"}, "0");
    EXPECT_EQ(cached("/aged"), GetParam().refreshesByItself ? "edition 2" : "edition 1");
    EXPECT_EQ(saidToBeIgnored_, !GetParam().refreshesByItself);
}

// "no": not stored at all; "old": the agent left the old copy; "gzip": for clients that take
// compressed pages.
TEST_P(Servers, PagesThatStayOldAreKnown)
{
    const Words pages = {"/immutable", "/cookie", "/vary"};
    const Words gzip = {"-H", "Accept-Encoding: gzip"};
    ASSERT_NO_FATAL_FAILURE(start());
    for (const std::string &path : pages) {
        EXPECT_EQ(cached(path), "asked");
        get(path, gzip);
    }
    edition_ = 2;
    refresh(pages);
    Words exceptions;
    for (const std::string &path : pages) {
        for (const Words &options : {Words(), gzip}) {
            const std::string got = cached(path, options);
            if (got != "edition 2") {
                exceptions.push_back((got == "asked" ? "no " : "old ") + path +
                                     (options.empty() ? "" : " gzip"));
            }
        }
    }
    EXPECT_EQ(exceptions, GetParam().exceptions);
}

}  // namespace
