// `proxytls`: nginx with certificates of each kind, and peers that break TLS in the middle.
#include <sys/stat.h>

#include <fstream>
#include <regex>

#include "Agent.h"

namespace {

// Makes a CA and certificates. That of good.test is also valid for two other names and 127.0.0.1.
const char *const kCertificates = R"sh(set -e
openssl ecparam -name prime256v1 -genkey -noout -out key
for ca in ca otherca; do openssl req -x509 -new -key key -days 9 -subj /CN=$ca -out $ca.pem; done
make() {
    openssl req -new -key key -subj /CN=$1 -addext subjectAltName=DNS:$1.test$2 |
        openssl x509 -req -copy_extensions copy -days $3 $4 $5 $6 $7 -out $1.pem
}
by() { echo -CA $1.pem -CAkey key -CAcreateserial; }
make good ,DNS:also.test,DNS:moved.test,IP:127.0.0.1 9 "$(by ca)"
make expired '' -1 "$(by ca)"
make unknown '' 9 "$(by otherca)"
make self '' 9 '-signkey key'
echo page > p
echo '<a href="big">' > links
head -c 70000 /dev/zero > big
)sh";

// The log names the server that the client's TLS asked for, the path, and the number of the request
// on its connection.
const char *const kServer = R"(daemon off; master_process off; pid pid; events {}
http {
log_format tls '$ssl_server_name$uri:$connection_requests'; access_log asked tls;
client_body_temp_path b; fastcgi_temp_path f; scgi_temp_path s; uwsgi_temp_path u;
proxy_temp_path p; keepalive_timeout 2s; default_type text/html;
map $ssl_server_name $name { default good; ~^(?<kind>expired|unknown|self) $kind; }
root @dir@; ssl_certificate_key @dir@/key; ssl_certificate @dir@/$name.pem;
server { listen 127.0.0.1:@port@ ssl; }
server { listen 127.0.0.2:@port@; access_log off; }
server { listen 127.0.0.3:@port@ ssl; ssl_protocols TLSv1.1; ssl_ciphers ALL:@SECLEVEL=0; }
server { listen 127.0.0.4:@port@ ssl; ssl_protocols TLSv1.2; }
server { listen 127.0.0.1:@port@ ssl; server_name moved.test;
    if ($connection_requests = 2) { return 421; }
    location /no { return 421; } }
})";

struct TlsRow : Row {
    std::string directives;
    std::string logged;      // path, status and reason of each URL
    std::string asked = "";  // as nginx logs it, with a blank behind each
    int retries = 0;
};

class TlsTest : public testing::Test {
protected:
    TlsTest()
    {
        Process maker({"--chdir=" + dir_.path(), "sh", "-c", kCertificates});
        EXPECT_EQ(maker.wait(kRunDeadline), 0) << maker.err();
    }
    // Replaces "@dir@", "@port@", and "ask" by the directive for an https URL.
    [[nodiscard]] std::string expand(std::string text) const
    {
        replaceAll(&text, "@port@", std::to_string(port_));
        replaceAll(&text, "@dir@", dir_.path());
        replaceAll(&text, "ask ", "loadurl https://");
        return text;
    }
    // Path, status and reason of each URL.
    static std::string resultsOf(const Agent &agent)
    {
        const std::regex line(
            ".*\"url\":\"(?:https?://[^/]*)?([^\"]*)\".*\"status\":(\\d+),[^}]*?"
            "(?:\"why\":\"([^\"]*)\")?\\}\n");
        return std::regex_replace(agent.dir.read("log"), line, "$1=$2 $3; ");
    }

    const TempDir dir_;
    const std::uint16_t port_ = ScriptedPeer().port();  // free a moment ago
};

class Tls : public TlsTest, public testing::WithParamInterface<TlsRow> {};

TEST_P(Tls, IsAcceptedOrRefusedWronglyOrWastesConnections)
{
    const TlsRow &row = GetParam();
    dir_.write("main", expand(kServer));
    Process nginx(split("/usr/sbin/nginx -p " + dir_.path() + " -e errors -c main"));
    Process client(
        split(expand("curl -qs --noproxy * --retry-connrefused --retry 30 --retry-delay "
                     "1 http://127.0.0.2:@port@/p")));
    client.wait(kRunDeadline);
    const ScriptedPeer silent;  // never sees the end of a request
    Agent agent(silent.port(),
                expand("proxytls on; numclients 1; readtimeout 2; retries 1; resultslog log; " +
                       row.directives));
    agent.run();
    EXPECT_EQ(resultsOf(agent), row.logged) << agent.process->err();
    EXPECT_EQ(agent.traced("will try URL"), row.retries);
    nginx.signal(SIGTERM);
    nginx.wait(kRunDeadline);
    std::string asked = dir_.read("asked");
    replaceAll(&asked, "\n", " ");
    EXPECT_EQ(asked, row.asked) << dir_.read("errors");
}

const std::string kTransparent = "transparentproxy on; updateproxy 127.0.0.1:@port@; ";
const std::string kTrusted = "proxytlsca @dir@/ca.pem; updateproxy 127.0.0.1:@port@; ";
const std::string kSites = kTransparent +
                           "ask good.test/p; ask wrong.test/p; ask expired.test/p; "
                           "ask self.test/p; ask unknown.test/p; ";
const std::string kTwo =
    kTrusted + kTransparent +
    "ask good.test/p; ask good.test/big; ask Also.test/p; ask also.test/p; ask good.test./p; ";
const std::string kTwoLogged = "/p=200 ; /big=200 ; /p=200 ; /p=200 ; /p=200 ; ";
const std::string kTwoAsked =
    "good.test/p:1 good.test/big:2 Also.test/p:1 Also.test/p:2 good.test/p:1 ";
const std::string kStraight = kTrusted + "transparentproxy on; connecttohost on; ";
const std::string kFour =
    "ask 127.0.0.1:@port@/p; ask 127.0.0.1:@port@/p; "
    "ask 127.0.0.1:@port@/p; ask 127.0.0.1:@port@/p; ";
const std::string kMoved = kTrusted + kTransparent + "variant A: b; variant A: c; ";

const TlsRow kRows[] = {
    {"OwnCA", kSites + kTrusted,
     "/p=200 ; /p=0 certificate: hostname mismatch; /p=0 certificate: certificate has expired; "
     "/p=0 certificate: self-signed certificate; "
     "/p=0 certificate: unable to get local issuer certificate; ",
     "good.test/p:1 "},
    {"SystemCAs", kTransparent + "ask good.test/p",
     "/p=0 certificate: unable to get local issuer certificate; "},
    {"NotVerified", kSites + "proxytlsverify off", "/p=200 ; /p=200 ; /p=200 ; /p=200 ; /p=200 ; ",
     "good.test/p:1 wrong.test/p:1 expired.test/p:1 self.test/p:1 unknown.test/p:1 "},
    {"Links", kTrusted + kTransparent + "delvedepth 1; ask good.test/links",
     "/links=200 ; /big=200 ; ", "good.test/links:1 good.test/big:2 "},
    {"ProxysName", kTrusted + "ask g.test/p; ask h.test/p", "/p=200 ; /p=200 ; ", "-/p:1 -/p:2 "},
    {"TwoHosts", kTwo, kTwoLogged, kTwoAsked},
    {"TwoHosts11", kTwo + "http11 on", kTwoLogged, kTwoAsked},
    {"TwoHostsOlder", kTwo + "updateproxy 127.0.0.4:@port@", kTwoLogged, kTwoAsked},
    {"IdleIsClosed", kTrusted + "ask h/p; ask h/p; delay 3000", "/p=200 ; /p=200 ; ",
     "-/p:1 -/p:1 "},
    {"Misdirected", kMoved + "ask moved.test/p; ask moved.test/no",
     "/p=200 ; /p=200 ; /no=421 status 421; /no=421 status 421; ",
     "moved.test/p:1 moved.test/p:2 moved.test/p:1 moved.test/no:2 moved.test/no:1 "
     "moved.test/no:1 moved.test/no:1 "},
    {"StraightToTheHost", kStraight + "numclients 3; " + kFour,
     "/p=200 ; /p=200 ; /p=200 ; /p=200 ; ", "-/p:1 -/p:1 -/p:1 -/p:1 "},
    {"OldVersion", kStraight + "ask 127.0.0.3:@port@/p",
     "/p=0 TLS handshake failed: tlsv1 alert protocol version; "},
    {"PlainServer", kStraight + "ask 127.0.0.2:@port@/p",
     "/p=0 TLS handshake failed: wrong version number; "},
    {"StallsInTheHandshake", "ask h/p", "/p=0 timed out; ", "", 1},
};
INSTANTIATE_TEST_SUITE_P(Nginx, Tls, testing::ValuesIn(kRows), rowName);

// The server is killed, so that nobody announces the end of the stream. It must have read the
// request by then: with bytes unread the kernel would reset the connection instead of ending it.
TEST_F(TlsTest, EndThatIsNotAnnouncedIsTakenForAFault)
{
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string length : {"", "Content-Length: 99\r\n"}) {
        Process server({"sh", "-c",
                        expand("cd @dir@; exec openssl s_server -accept 127.0.0.1:@port@ -key key "
                               "-cert good.pem <>fifo >&2")});
        ASSERT_TRUE(server.waitForError("ACCEPT", kRunDeadline)) << server.err();
        std::fstream(fifo) << "HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n" + length +
                                  "\r\npage";
        Agent agent(port_, expand("proxytls on; proxytlsca @dir@/ca.pem; closedelimitedbodies on; "
                                  "readtimeout 30; loadurl h/p; resultslog log"));
        agent.start();
        EXPECT_TRUE(agent.process->waitForError("Cache Agent read", kRunDeadline));
        EXPECT_TRUE(server.waitForError("max-age=0", kRunDeadline)) << server.err();
        server.signal(SIGKILL);
        agent.finish();
        EXPECT_EQ(resultsOf(agent),
                  length.empty() ? "/p=200 ; " : "/p=200 connection broke within the answer; ");
    }
}

}  // namespace
