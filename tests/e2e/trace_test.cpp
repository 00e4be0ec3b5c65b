// The trace of a whole run.
#include <gtest/gtest.h>

#include <sstream>

#include "Agent.h"

namespace {

// The lines of the main and the master thread, then those of the worker, without carriage returns:
// each come in one order, but the two mix freely. What varies from run to run becomes "#". How
// often the master looks varies too: of equal lines the first counts.
std::string inOrder(std::string trace)
{
    for (const std::string before : {"now=", "buffer ", "cs ", "sz ", "ket ", " read ", ".1:"}) {
        for (std::size_t at = 0; (at = trace.find(before, at)) != std::string::npos;) {
            at += before.size();
            trace.replace(at, trace.find_first_not_of("0123456789abcdef", at) - at, "#");
        }
    }
    const std::string labels = " Worke Buffe Reque Net.. Cache Parse HTTP. Accep User- Host: Conne";
    std::string order[] = {"\n", "\n"};
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        line = line.substr(0, line.find('\r')) + "\n";
        std::string &mine = order[labels.find(" " + line.substr(0, 5)) < labels.size() ? 1 : 0];
        if (line.size() > 1 && line.find("still busy") == std::string::npos &&
            mine.find("\n" + line) == std::string::npos) {
            mine += line;
        }
    }
    return order[0] + order[1];
}

TEST(Run, TraceOfARunIsInOrder)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "hostname 127.0.0.1; numclients 1; no-directive of ours; loadurl http://h/d/../a");
    agent.run();
    EXPECT_EQ(inOrder(agent.process->err()),
              "\nLoading..... config file \"" + agent.dir.path("proxy.conf") + R"(".
Proxy....... being updated is "127.0.0.1:#".
Hostname.... 127.0.0.1.
Clients..... 1.
Simplify.... path down to "/a".
Adding...... 1 hit(s) for host "h".
Added....... new host "h" to host table.
Will load... URL "http://h/d/../a".
Hosts....... match (127.0.0.1, 127.0.0.1) --> use top N.
Starting.... client thread #1.
The locale is set to de_DE.
Starting.... Will run for 1 times!!
Master......  time now=#s, maxruntime=0
Master...... queue is empty.
Stopping.... client thread #1.
Deleting.... client thread #1.
Flushing.... remove all processed URLs.
Flushing.... remove all non-processed URLs.
Master...... all threads done - we're outta here!

Worker...... thread 1 starting.
Buffer...... new a buffer #.
Worker...... #1 working on URL "http://h/a".
Request..... built: GET http://h/a HTTP/1.0
Accept: text/html, */*; q=0.10
User-Agent: Mozilla/4.0 (emulation; QRX BUG)
Host: h
Cache-Control: max-age=0
Connection: Keep-alive
Net......... requesting "http://h/a".
Cache Agent read # bytes from socket #.
Buffer...... bs 4096, cs #, sz #.
Parser...... found header Content-Type: text/plain.
Parser...... found header Content-Length: 2.
Parser...... found header Connection: keep-alive.
Parser...... Content-length:  2, Connection:  keep-alive
Parser...... doesn't understand Content-type: text/plain
HTTP........ parser sending 2 bytes to its sink, (0/2) .
HTTP........ the sink eat 2 bytes, 0 bytes more wanted.
Net.. stop reading the socket.
Worker...... thread 1 has nothing to do.
Worker...... thread 0 exiting.
)");
}

}  // namespace
