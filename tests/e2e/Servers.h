// A real caching proxy from Debian in front of an origin whose pages name their edition.
#pragma once

#include <ctime>
#include <iomanip>

#include "Agent.h"

// The least that a server needs to run in its own directory.
struct Server : Row {
    bool reverse;
    bool refreshesByItself;  // without the recipe
    bool agentOnly;          // with the recipe
    const char *recipe;
    const char *instead;  // the least that makes it a proxy without the recipe
    std::string command;
    std::string files;            // each is "%name", a line end and its text
    const char *copies;           // the result of PagesThatStayOldAreKnown
    bool tls = false;             // clients come over TLS
    std::string terminator = "";  // a program that decrypts that; empty: the server itself does
};

inline const Server kServers[] = {
    Server({"Squid"}, false, true, false, "squid.conf", "http_access allow localhost",
           "/usr/sbin/squid -N -f @dir@/main",
           "%main\nhttp_port 127.0.0.1:@port@\ninclude @recipe@\nacl other src 127.0.0.2\n"
           "http_access allow other\nhttp_access deny all\nvisible_hostname squid.test\n"
           "cache_mem 16 MB\nmemory_cache_shared off\nmax_filedescriptors 1024\npinger_enable off\n"
           "netdb_filename none\nshutdown_lifetime 0 seconds\npid_filename none\n"
           "cache_log @dir@/log\naccess_log none\ncoredump_dir @dir@\n",
           "112221"),
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
           "222221"),
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
        "222221"),
    Server({"Nginx"}, true, false, true, "nginx.conf",
           "add_header X-Cache $upstream_cache_status always;\n",
           "/usr/sbin/nginx -p @dir@ -e @dir@/log -c main",
           "%main\ndaemon off; master_process off; pid pid;\nevents {}\nhttp {\naccess_log off;\n"
           "client_body_temp_path b; fastcgi_temp_path f; scgi_temp_path s; uwsgi_temp_path u;\n"
           "proxy_temp_path p; proxy_cache_path cache keys_zone=site:1m;\ninclude @recipe@;\n"
           "server { listen 127.0.0.1:@port@; location / { proxy_pass http://127.0.0.1:@origin@;\n"
           "proxy_set_header Host $host; proxy_cache site;\n@location@} }\n}\n",
           "22--21"),
    Server({"Varnish"}, true, false, true, "varnish.vcl", "",
           "/usr/sbin/varnishd -F -j none -n @dir@/work -a 127.0.0.1:@port@ "
           "-f @dir@/main -s malloc,16M",
           "%main\nvcl 4.1;\nbackend site { .host = \"127.0.0.1\"; .port = \"@origin@\"; }\n"
           "include \"@recipe@\";\n",
           "22--22"),
};

// The server with TLS: `before` in its command or files becomes `after`.
inline Server overTls(const char *name, Server server, const char *before, const char *after,
                      const char *terminator = "")
{
    server.name = name;
    server.tls = true;
    server.terminator = terminator;
    replaceAll(&server.command, before, after);
    replaceAll(&server.files, before, after);
    return server;
}

inline const Server kTlsServers[] = {
    overTls("NginxTls", kServers[3], "@port@;",
            "@port@ ssl; ssl_certificate_key @dir@/key; ssl_certificate @dir@/certificate;"),
    overTls("VarnishTls", kServers[4], "@port@", "@inner@,PROXY",
            "/usr/sbin/hitch --write-proxy-v2 --backend=[127.0.0.1]:@inner@ "
            "--frontend=[127.0.0.1]:@port@ --user=nobody @dir@/both"),
};

// An origin whose pages name their edition and stay fresh for an hour, and the server in front.
class ServerTest : public testing::Test {
protected:
    explicit ServerTest(const Server &server) : server_(server) {}

    void TearDown() override
    {
        process_ != nullptr ? end(SIGTERM) : void();
        if (terminator_ != nullptr) {
            terminator_->signal(SIGTERM);
            terminator_->wait(kRunDeadline);
        }
    }

    void end(int signal)
    {
        process_->signal(signal);
        const int status = process_->wait(Millis(10000));
        EXPECT_TRUE(status != 128 + SIGKILL || signal == SIGKILL) << "had to be killed";
    }
    void start() { start(std::string(SOURCE_DIRECTORY "/recipes/") + server_.recipe); }
    // Also puts these lines beside those that make the server a proxy for the site.
    void start(const std::string &recipe, const std::string &location = "")
    {
        const std::pair<std::string, std::string> values[] = {
            {"@dir@", dir_.path()},
            {"@recipe@", recipe},
            {"@location@", location},
            {"@port@", std::to_string(port_)},
            {"@inner@", std::to_string(inner_)},
            {"@origin@", std::to_string(origin_.port())}};
        std::string command = server_.command;
        std::string terminator = server_.terminator;
        std::string text = server_.files;
        for (const auto &[name, value] : values) {
            replaceAll(&command, name, value);
            replaceAll(&terminator, name, value);
            replaceAll(&text, name, value);
        }
        ASSERT_NO_FATAL_FAILURE(server_.tls ? makeCertificate() : void());
        // Some change to a user of their own when root starts them, who must be able to write here.
        std::filesystem::permissions(dir_.path(), std::filesystem::perms::all);
        std::istringstream files(text);
        files.ignore();
        for (std::string name; std::getline(files, name) && std::getline(files, text, '%');) {
            dir_.write(name, text);
        }
        process_ = std::make_unique<Process>(split(command));
        terminator_ = terminator.empty() ? nullptr : std::make_unique<Process>(split(terminator));
        ASSERT_THAT(get("/first"), testing::HasSubstr("edition 1"))
            << process_->err() << dir_.read("log");
    }

    void makeCertificate()
    {
        Process maker({"--chdir=" + dir_.path(), "sh", "-c",
                       "openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=x -addext "
                       "subjectAltName=DNS:www.site.test -keyout key -out certificate && "
                       "cat key certificate >both"});
        ASSERT_EQ(maker.wait(kRunDeadline), 0) << maker.err();
    }

    // Requests the page as an ordinary client does, waiting for the server to start. Returns the
    // whole response.
    std::string get(const std::string &path, const Words &options = {}) const
    {
        Words words =
            split("no_proxy= NO_PROXY= curl -qsi --retry-all-errors --retry 30 --retry-delay 1 " +
                  std::string(server_.reverse ? "--noproxy * --connect-to ::" : "-x ") +
                  "127.0.0.1:" + std::to_string(port_) +
                  (server_.tls ? " --cacert " + dir_.path("certificate") : ""));
        words.insert(words.end(), options.begin(), options.end());
        words.push_back(site_ + path);
        Process client(words);
        client.wait(Millis(40000));
        return client.out();
    }
    // "asked" when the origin saw this request; otherwise "edition N" from the cache, or the whole
    // response when that is damaged.
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
    // Its last character; "-": the origin saw the request.
    [[nodiscard]] char edition(const std::string &path, const Words &options = {}) const
    {
        const std::string got = cached(path, options);
        return got == "asked" ? '-' : got.back();
    }
    void expectCached(const Words &paths, const std::string &edition) const
    {
        for (const std::string &path : paths) {
            EXPECT_EQ(cached(path), edition) << path;
        }
    }
    // Runs the agent, which ends with this status. Returns the number of requests that reach the
    // origin meanwhile.
    std::size_t refresh(const Words &paths, const std::string &depth = "1",
                        const std::string &more = "", int status = 0)
    {
        const std::size_t before = origin_.requests().size();
        std::string directives =
            more + "; resultslog @dir@/log; metricsfile @dir@/prom; delvedepth " + depth;
        for (const std::string &path : paths) {
            directives += "; loadurl " + site_ + path;
        }
        agent_ = std::make_unique<Agent>(
            port_,
            directives + (server_.reverse ? "; transparentproxy on" : "") +
                (server_.tls ? "; proxytls on; proxytlsca " + dir_.path("certificate") : ""));
        agent_->start();
        agent_->finish(status);
        return origin_.requests().size() - before;
    }

    // Each links to the next one, whose name is longer. The end comes late, or the server might
    // know the length before it answers.
    static Reply chunked(const std::string &target)
    {
        const std::string link = "<a href=\"" + target + "x\">";
        std::ostringstream head;
        head << "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nTransfer-Encoding: chunked\r\n\r\n"
             << std::hex << link.size() << "\r\n";
        return {{{head.str() + link}, {"\r\n0\r\n\r\n", 100}}};
    }
    [[nodiscard]] std::string compressed(const std::string &name, const std::string &body) const
    {
        Process gzip({"gzip", "-nc", dir_.write("plain" + name, body)});
        gzip.wait(Millis(10000));
        return gzip.out();
    }
    Reply page(const ScriptedPeer::Request &request)
    {
        const std::string &target = request.target;
        if (edition_ == 0) {
            return {Reply::head("503 No").pieces, Reply::Then::Close};
        }
        if (target.starts_with("/chunked")) {
            return chunked(target);
        }
        std::string more = target == "/immutable"        ? ", immutable"
                           : target.starts_with("/aged") ? "\r\nAge: 100"
                           : target == "/cookie"         ? "\r\nSet-Cookie: a=b"
                           : target == "/vary"           ? "\r\nVary: Accept-Encoding"
                           : target == "/language" ? "\r\nVary: Accept-Encoding, Accept-Language"
                                                   : "";
        const bool german = request.bytes.find("Accept-Language: de") != std::string::npos;
        std::string body = "edition " + std::to_string(edition_) +
                           "<a href=\"relative\"><a href=\"" + site_ + "/absolute\">" +
                           std::string(20000, '.') + (german ? "Ende" : "end of " + target);
        if (more.starts_with("\r\nVary") && request.bytes.find("gzip") != std::string::npos) {
            more += "\r\nContent-Encoding: gzip";
            body = compressed(target, body);
        }
        Reply reply = Reply::html(body);
        const std::time_t now = std::time(nullptr);
        std::tm utc{};
        std::ostringstream head;
        head << "\r\nDate: " << std::put_time(gmtime_r(&now, &utc), "%a, %d %b %Y %T GMT")
             << "\r\nCache-Control: max-age=3600" << more;
        std::string &bytes = reply.pieces.front().bytes;
        bytes.insert(bytes.find("\r\n"), head.str());
        return reply;
    }

    const Server server_;
    const TempDir dir_;
    std::atomic<int> edition_ = 1;  // 0: the origin is in trouble
    const ScriptedPeer origin_{[this](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        return page(request);
    }};
    const std::uint16_t port_ = ScriptedPeer().port();   // free a moment ago
    const std::uint16_t inner_ = ScriptedPeer().port();  // the same
    const std::string site_ = (server_.tls ? "https://" : "http://") +
                              (server_.reverse ? "www.site.test" : origin_.address());
    std::unique_ptr<Process> process_;
    std::unique_ptr<Process> terminator_;
    std::unique_ptr<Agent> agent_;  // that ran last
};
